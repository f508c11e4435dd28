#ifndef DALNIM_TOOLS_NIMXML_EVENTPRINTER_HPP
#define DALNIM_TOOLS_NIMXML_EVENTPRINTER_HPP

#include <dalnim/xml/Consumer.hpp>
#include <support/Output.hpp>

namespace nimxml {

namespace xml = com::kor::dal::nim::xml;

/** Prints one line for each event of a document. */
class EventPrinter : public xml::Consumer
{
public:
    explicit EventPrinter(nimtools::Output& output) : out(output) {}

    bool elementBegin(const std::string& tag, const std::string& fullTag,
                      const xml::Attributes& attrs) override;
    bool elementEnd(const std::string& tag, const std::string& fullTag) override;
    bool elementProcessData(const std::string& tag, const std::string& fullTag, const std::string& data,
                            bool isCData) override;

protected:
    ~EventPrinter() noexcept(false) override = default;

private:
    void writeQuoted(const std::string& text);

    nimtools::Output& out;
};

}

#endif
