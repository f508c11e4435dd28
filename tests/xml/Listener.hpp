#ifndef DALNIM_TESTS_XML_LISTENER_HPP
#define DALNIM_TESTS_XML_LISTENER_HPP

#include <dalnim/xml/Consumer.hpp>

#include <functional>
#include <string>
#include <vector>

namespace test {

/** A consumer that records its events as lines, in a list of its own or in a shared one. */
class Listener : public com::kor::dal::nim::xml::Consumer
{
public:
    explicit Listener(std::string listenerName = "") : lines(&own), name(std::move(listenerName)) {}
    Listener(std::string listenerName, std::vector<std::string>& shared)
        : lines(&shared), name(std::move(listenerName))
    {
    }

    bool elementBegin(const com::kor::dal::nim::String& tag, const com::kor::dal::nim::String& fullTag,
                      const com::kor::dal::nim::xml::Attributes& attrs) override
    {
        std::string line = "begin " + tag + " " + fullTag;
        for (const com::kor::dal::nim::xml::Attribute& attribute : attrs) {
            line += " " + attribute.name + "=[" + attribute.value + "]";
        }
        return record(line);
    }
    bool elementEnd(const com::kor::dal::nim::String& tag, const com::kor::dal::nim::String& fullTag) override
    {
        return record("end " + tag + " " + fullTag);
    }
    bool elementProcessData(const com::kor::dal::nim::String& tag, const com::kor::dal::nim::String& fullTag,
                            const com::kor::dal::nim::String& data, bool isCData) override
    {
        return record((isCData ? "cdata " : "data ") + tag + " " + fullTag + " [" + data + "]");
    }

    const std::vector<std::string>& events() const
    {
        return *lines;
    }
    void clear()
    {
        lines->clear();
    }

    /** Called for each event, with its line. Its result is returned to the parser. */
    std::function<bool(const std::string&)> answer;

protected:
    ~Listener() noexcept(false) override = default;

private:
    bool record(const std::string& line)
    {
        lines->push_back(name.empty() ? line : name + ": " + line);
        return answer ? answer(line) : true;
    }

    std::vector<std::string> own;
    std::vector<std::string>* lines;
    std::string name;
};

typedef com::kor::dal::nim::mem::RcoRef<Listener> ListenerRef;

}

#endif
