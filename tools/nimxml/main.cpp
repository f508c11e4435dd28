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
    "Parses documents in the XML subset of dalnim. If FILE is \"-\", reads standard input.\n"
    "\n"
    "  print  print the events of a document, one per line\n"
    "  check  print the errors of documents\n"
    "\n"
    "  -h, --help     print this help\n"
    "  -V, --version  print the version\n"
    "\n"
    "Exit status: 0 if all documents are correct; 1 if a document has an error; 2 if the command line is\n"
    "invalid or a file cannot be read.\n";

/** Ignores all events. */
class NullConsumer : public xml::Consumer
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
    ~NullConsumer() noexcept(false) override = default;
};

/**
 * Returns "file:line:column: offset N: text". Lines and columns start at 1, offsets at 0; all count bytes.
 */
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

/** Converts the parser's message "text -- near offset N: bytes..." to the form of errorAt(). */
std::string syntaxError(const std::string& path, const std::string& document, const std::string& message)
{
    const std::string separator = " -- near offset ";
    const std::size_t found = message.find(separator);
    if (found == std::string::npos) {
        return path + ": " + message;
    }
    return errorAt(path, document, std::strtoul(message.c_str() + found + separator.size(), nullptr, 10),
                   message.substr(0, found));
}

class NimXml : public nimtools::CommandProgram
{
public:
    NimXml()
        : CommandProgram("nimxml", USAGE,
                         {{"print", 1, 1, "FILE", [this](auto& files) { return print(files.front()); }},
                          {"check", 1, ANY_NUMBER, "FILE...", [this](auto& files) { return check(files); }}})
    {
    }

private:
    std::string parse(const std::string& path, xml::ConsumerRef& consumer);
    Status print(const std::string& path);
    Status check(const std::vector<std::string>& paths);
};

/**
 * Parses a document. Returns its error, or an empty string.
 * @throws Failure if the file cannot be read
 */
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
    // The parser stops at a NUL.
    const std::size_t nul = document.find('\0');
    if (nul != std::string::npos) {
        return errorAt(path, document, nul, "NUL byte in the document; the parser ignores the rest");
    }
    return "";
}

Status NimXml::print(const std::string& path)
{
    xml::ConsumerRef printer(new EventPrinter(out));
    const std::string error = parse(path, printer);
    if (error.empty()) {
        return nimtools::STATUS_OK;
    }
    warn(error);
    return nimtools::STATUS_FOUND;
}

Status NimXml::check(const std::vector<std::string>& paths)
{
    Status status = nimtools::STATUS_OK;
    xml::ConsumerRef consumer(new NullConsumer);
    for (const std::string& path : paths) {
        try {
            const std::string error = parse(path, consumer);
            if (!error.empty()) {
                out << error << '\n';
                status = std::max(status, nimtools::STATUS_FOUND);
            }
        } catch (const nimtools::Failure& exc) {
            warn(exc.what());
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
