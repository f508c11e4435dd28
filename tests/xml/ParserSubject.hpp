#ifndef TESTS_XML_PARSERSUBJECT_HPP
#define TESTS_XML_PARSERSUBJECT_HPP

#include "ParserEvents.hpp"

#include <dalnim/xml/nim_opbparse.h>

#include <memory>
#include <utility>

namespace parsermodel {

/** The push parser, with the interface of its model. */
class ParserSubject
{
public:
    ParserSubject(bool common, std::uintptr_t user_data) : userData_(user_data)
    {
        nim_pdsParseInit(0, this, common ? nullptr : onStart, common ? nullptr : onEnd,
                         common ? nullptr : onData, common ? onCommon<0> : nullptr, nullptr, &handle_);
    }

    ~ParserSubject()
    {
        nim_pdsParseDestroy(&handle_);
    }

    ParserSubject(const ParserSubject&) = delete;
    ParserSubject& operator=(const ParserSubject&) = delete;

    void reset(std::uintptr_t user_data, Script script)
    {
        userData_ = user_data;
        script_ = std::move(script);
        events_.clear();
        nim_pdsParseReset(0, this, handle_);
    }

    int parseBuffer(const std::string& piece, int flags)
    {
        // A block of the exact size, so that the address sanitizer detects any read past the end.
        const std::unique_ptr<char[]> block(new char[piece.size() + 1]);
        piece.copy(block.get(), piece.size());
        block[piece.size()] = '\0';
        return nim_pdsParseBuffer(block.get(), flags, handle_);
    }

    const std::vector<Event>& events() const
    {
        return events_;
    }

    /** Returns true if the message is `expected`, which may contain NULs, followed by a NUL. */
    bool hasError(const std::string& expected) const
    {
        const char* const error = nim_pdsParseGetErrorInfo(handle_);
        for (std::size_t i = 0; i <= expected.size(); ++i) {
            if (error[i] != expected.c_str()[i]) {
                return false;
            }
        }
        return true;
    }

private:
    static int onStart(void* context, char* tag, char* full_tag, std::size_t count, char** attributes)
    {
        Event event = makeEvent(PDS_PARSE_CB_TAG_START, tag, full_tag, nullptr, count, attributes);
        return subject(context).record(std::move(event));
    }

    static int onEnd(void* context, char* tag, char* full_tag)
    {
        return subject(context).record(makeEvent(PDS_PARSE_CB_TAG_END, tag, full_tag, nullptr, 0, nullptr));
    }

    static int onData(void* context, int is_cdata, char* data, char* full_tag)
    {
        const int type = is_cdata == 1   ? PDS_PARSE_CB_CDATA
                         : is_cdata == 0 ? PDS_PARSE_CB_DATA
                                         : 100 + is_cdata;
        return subject(context).record(makeEvent(type, nullptr, full_tag, data, 0, nullptr));
    }

    template <int Number>
    static int onCommon(PDS_PARSE_H handle, pds_parse_cb_type_e type, void* user_data, void* user_data_alt,
                        char* tag, char* full_tag, char* data, std::size_t count, char** attributes)
    {
        Event event = makeEvent(type, tag, full_tag, data, count, attributes);
        event.callback = Number;
        ParserSubject& self = subject(user_data);
        // Initially, the alternate user data is the user data.
        event.userDataAlt =
            user_data_alt == user_data ? self.userData_ : reinterpret_cast<std::uintptr_t>(user_data_alt);
        if (handle != self.handle_) {
            event.type += 1000;
        }
        return self.record(std::move(event));
    }

    static Event makeEvent(int type, const char* tag, const char* full_tag, const char* data,
                           std::size_t count, char** attributes)
    {
        Event event;
        event.type = type;
        event.tag = tag != nullptr ? tag : "";
        event.fullTag = full_tag;
        event.hasData = data != nullptr;
        event.data = data != nullptr ? data : "";
        event.numAttributes = count;
        event.hasAttributes = attributes != nullptr;
        for (char** entry = attributes; attributes != nullptr && *entry != nullptr; ++entry) {
            event.attributes.emplace_back(*entry);
        }
        return event;
    }

    int record(Event event)
    {
        const std::size_t number = events_.size();
        const auto scripted = script_.find(number);
        const Action action = scripted == script_.end() ? Action::GoOn : scripted->second;
        if (action == Action::Push || action == Action::PushTwice || action == Action::PushTwiceAndStop) {
            event.pushes.push_back(push(number));
        }
        if (action == Action::PushTwice || action == Action::PushTwiceAndStop) {
            event.pushes.push_back(push(number));
        }
        if (action == Action::PushNull) {
            event.pushes.push_back(nim_pdsParsePushCommonCB(nullptr, nullptr, 0, handle_));
        }
        if (action == Action::Reset) {
            nim_pdsParseReset(0, this, handle_);
        }
        event.userData = userData_;
        events_.push_back(std::move(event));
        if (action == Action::Throw) {
            throw Thrown();
        }
        const bool stops = action == Action::Stop || action == Action::PushTwiceAndStop;
        return stops ? 1 + static_cast<int>(number) : 0;
    }

    int push(std::size_t event)
    {
        return nim_pdsParsePushCommonCB(pushedCallback(event) == 1 ? onCommon<1> : onCommon<2>,
                                        reinterpret_cast<void*>(pushedUserData(event)), 0, handle_);
    }

    static ParserSubject& subject(void* context)
    {
        return *static_cast<ParserSubject*>(context);
    }

    PDS_PARSE_H handle_ = nullptr;
    std::uintptr_t userData_;
    Script script_;
    std::vector<Event> events_;
};

}

#endif
