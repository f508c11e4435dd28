#include <dalnim/nim.hpp>

#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

using namespace com::kor::dal::nim;

namespace {

/** One of several shops with different settings. */
class Shop
{
public:
    Shop(const io::Properties& configuration, const String& instance)
        : settings(io::Config::getDefaultedProperties(configuration, instance))
    {
        unsigned short port = 0;
        type::NumberOps::parse(port, settings->getProperty("port"));
        std::cout << instance << " listens on " << port << '\n';
        for (const auto& [key, value] : *settings) {
            std::cout << "    " << key << " = \"" << value << "\"\n";
        }
    }

private:
    const std::unique_ptr<const io::Properties> settings;
};

/** Adds the properties of a file and its includes, and prints the warnings. */
void load(io::Properties& configuration, const char* path)
{
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("there is no " + String(path));
    }
    std::ostringstream warnings;
    std::ostringstream notes;
    configuration.load(file, path, warnings, notes, io::Properties::SEV_WARNING);
    std::cout << warnings.str();
}

}

int main()
{
    io::Properties configuration;
    load(configuration, "shop.properties");
    const Shop north(configuration, "north");
    const Shop south(configuration, "south");

    try {
        configuration.setProperty("west/port", "80800");
        const Shop west(configuration, "west");
    } catch (const std::out_of_range& failure) {
        std::cout << "west/port: " << failure.what() << '\n';
    }
    try {
        std::istringstream text("east/port = 8081\neast/sign = \\u20ac 5\n");
        configuration.load(text);
    } catch (const std::invalid_argument& failure) {
        std::cout << failure.what() << '\n';
    }
    std::cout << "east: " << configuration.getProperty("east/port") << '\n';
}
