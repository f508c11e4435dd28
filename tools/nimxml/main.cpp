#include "EventPrinter.hpp"

#include <dalnim/sys/SysError.hpp>
#include <dalnim/xml/Parser.hpp>
#include <dalnim/xml/nim_opbparse.h>
#include <support/CommandProgram.hpp>
#include <support/Errors.hpp>
#include <support/Input.hpp>

#include <algorithm>
#include <cstdlib>

namespace nimxml {

namespace {

using nimtools::Status;
using com::kor::dal::nim::sys::system_error;

const char USAGE[] =
    "usage: nimxml print FILE\n"
    "       nimxml check FILE...\n"
    "\n"
    "Parses documents of the XML subset of dalnim; \"-\" is standard input.\n"
    "\n"
    "  print  show the events of a document, one a line\n"
    "  check  show what is wrong in each document\n"
    "\n"
    "  -h, --help     show this text\n"
    "  -V, --version  show the version\n"
    "\n"
    "Exit status: 0; 1 for a document with an error; 2 for a bad command line or a file that cannot be\n"
    "read.\n";

/** Has no interest in the events. */
class Ignorer : public xml::Consumer
{
public:
    bool elementBegin(const std::string&, const std::string&, const xml::Attributes&) override
    {
        return true;
    }
    bool elementEnd(const std::string&, const std::string&) override
    {
        return true;
    }
    bool elementProcessData(const std::string&, const std::string&, const std::string&, bool) override
    {
        return true;
    }

protected:
    ~Ignorer() noexcept(false) override = default;
};

/** "file:line:column: offset N: text", where lines and columns count from 1 and offsets from 0, in bytes. */
std::string errorAt(const std::string& path, const std::string& document, std::size_t offset,
                    const std::string& text)
{
    const auto begin = document.begin();
    const auto at = begin + static_cast<std::ptrdiff_t>(std::min(offset, document.size()));
    const auto line = std::count(begin, at, '\n') + 1;
    const auto lineBegin = std::find(std::make_reverse_iterator(at), document.rend(), '\n').base();
    return path + ":" + std::to_string(line) + ":" + std::to_string(at - lineBegin + 1) + ": offset "
           + std::to_string(offset) + ": " + text;
}

/** The parser's "text -- near offset N: bytes..." as a line for the user. */
std::string syntaxError(const std::string& path, const std::string& document, const std::string& message)
{
    const std::string mark = " -- near offset ";
    const std::size_t found = message.find(mark);
    if (found == std::string::npos) {
        return path + ": " + message;
    }
    return errorAt(path, document, std::strtoul(message.c_str() + found + mark.size(), nullptr, 10),
                   message.substr(0, found));
}

class NimXml : public nimtools::CommandProgram
{
public:
    NimXml()
        : CommandProgram("nimxml", USAGE,
                         {{"print", 1, 1, "one FILE", [this](auto& files) { return print(files.front()); }},
                          {"check", 1, ANY_NUMBER, "a FILE", [this](auto& files) { return check(files); }}})
    {
    }

private:
    std::string parse(const std::string& path, xml::ConsumerRef& consumer);
    Status print(const std::string& path);
    Status check(const std::vector<std::string>& paths);
};

/** Gives the error of the document, if there is one. Throws Failure when it cannot be read. */
std::string NimXml::parse(const std::string& path, xml::ConsumerRef& consumer)
{
    const std::string document = nimtools::readAll(path);
    try {
        xml::Parser(consumer).parse(document);
    } catch (const system_error& exc) {
        if (exc.error() == PDS_PARSE_E_NO_MEMORY) {
            throw std::bad_alloc();
        }
        return syntaxError(path, document, exc.what());
    }
    // The parser takes it for the end of the text.
    const std::size_t zero = document.find('\0');
    if (zero != std::string::npos) {
        return errorAt(path, document, zero, "A zero byte; what follows it is not read");
    }
    return "";
}

Status NimXml::print(const std::string& path)
{
    xml::ConsumerRef printer(new EventPrinter(out));
    const std::string error = parse(path, printer);
    if (error.empty()) {
        return nimtools::STATUS_FINE;
    }
    complain(error);
    return nimtools::STATUS_FOUND;
}

Status NimXml::check(const std::vector<std::string>& paths)
{
    Status status = nimtools::STATUS_FINE;
    xml::ConsumerRef ignorer(new Ignorer);
    for (const std::string& path : paths) {
        try {
            const std::string error = parse(path, ignorer);
            if (!error.empty()) {
                out << error << '\n';
                status = std::max(status, nimtools::STATUS_FOUND);
            }
        } catch (const nimtools::Failure& exc) {
            complain(exc.what());
            status = nimtools::STATUS_FAILED;
        }
    }
    return status;
}

}

}

int main(int argc, char** argv)
{
    return nimxml::NimXml().run(argc, argv);
}
