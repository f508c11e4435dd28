#include <dalnim/nim.hpp>

#include <fstream>
#include <iostream>

using namespace com::kor::dal::nim;

namespace {

/** Prints the events. */
class Echo : public xml::Consumer
{
public:
    bool elementBegin(const String& tag, const String& fullTag, const xml::Attributes& attrs) override
    {
        std::cout << "begin " << tag << " at " << fullTag;
        for (const xml::Attribute& attribute : attrs) {
            std::cout << ' ' << attribute.name << "=[" << attribute.value << ']';
        }
        std::cout << '\n';
        return true;
    }
    bool elementEnd(const String& tag, const String&) override
    {
        std::cout << "end   " << tag << '\n';
        return true;
    }
    bool elementProcessData(const String&, const String&, const String& data, bool isCData) override
    {
        std::cout << (isCData ? "cdata [" : "text  [") << data << "]\n";
        return true;
    }
};

/** Sums up the prices, and stops the parse above 100. */
class Bill : public xml::Consumer
{
public:
    bool elementBegin(const String&, const String& fullTag, const xml::Attributes& attrs) override
    {
        if (fullTag == "order") {
            sum = 0;
        } else if (fullTag == "order/item") {
            for (const xml::Attribute& attribute : attrs) {
                if (attribute.name == "price") {
                    int price = 0;
                    sum += type::NumberOps::parse(price, attribute.value);
                }
            }
        }
        return sum <= 100;
    }
    bool elementEnd(const String&, const String&) override
    {
        return true;
    }
    bool elementProcessData(const String&, const String&, const String&, bool) override
    {
        return true;
    }

    int sum = 0;
};

void parse(xml::Parser& parser, const String& document)
{
    try {
        parser.parse(document);
        std::cout << "parsed\n";
    } catch (const sys::system_error& failure) {
        std::cout << failure.error() << ": " << failure.what() << '\n';
    } catch (const std::exception& failure) {
        std::cout << failure.what() << '\n';
    }
}

}

int main()
{
    const mem::RcoRef<Bill> bill = new Bill;
    xml::AggregateConsumerRef both = new xml::AggregateConsumer;
    both->push_back(new Echo);
    both->push_back(bill);
    xml::ConsumerRef consumer = both;

    xml::Parser parser(consumer);
    std::ifstream file("order.xml");
    if (!file) {
        std::cerr << "there is no order.xml\n";
        return 1;
    }
    parser.parse(file);
    std::cout << "sum " << bill->sum << "\n\n";

    xml::ConsumerRef quiet = bill;
    xml::Parser second(quiet);
    parse(second, "<order><item price='60'/><item price='60'/></order>");
    parse(second, "<order><item price=60/></order>");
    parse(second, "<order><item price='1'></order>");
    parse(second, "<order><item price='free'/></order>");
    parse(second, "<order><item price='60'/></order>");
}
