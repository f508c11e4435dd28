#ifndef DALNIM_TESTS_XML_RECORDER_HPP
#define DALNIM_TESTS_XML_RECORDER_HPP

#include <dalnim/xml/nim_opbparse.h>

#include <cstddef>
#include <string>
#include <vector>

namespace test {

/** Records the events of a push parser, one line each. Its callbacks return a chosen result. */
class Recorder
{
public:
    std::vector<std::string> events;
    /** Number of the event (from 1) whose callback returns `answer`; 0 for none. */
    std::size_t stopAt = 0;
    int answer = 1;

    static int tagStart(void* context, char* tag, char* fullTag, std::size_t entries, char** attributes)
    {
        return of(context).note("start " + std::string(tag) + " " + fullTag + listed(entries, attributes));
    }
    static int tagEnd(void* context, char* tag, char* fullTag)
    {
        return of(context).note("end " + std::string(tag) + " " + fullTag);
    }
    static int data(void* context, int isCData, char* text, char* fullTag)
    {
        return of(context).note((isCData == 1 ? "cdata " : "data ") + std::string(fullTag) + " [" + text
                                + "]");
    }
    /**
     * Records the same lines from a common callback; the lines of text also contain the tag and attributes.
     */
    static int common(PDS_PARSE_H, pds_parse_cb_type_e type, void* userData, void*, char* tag, char* fullTag,
                      char* text, std::size_t entries, char** attributes)
    {
        Recorder& recorder = of(userData);
        switch (type) {
        case PDS_PARSE_CB_TAG_START:
            return text != nullptr ? -1
                                   : recorder.note("start " + std::string(tag) + " " + fullTag
                                                   + listed(entries, attributes));
        case PDS_PARSE_CB_TAG_END:
            return text != nullptr || entries != 0 || attributes != nullptr
                       ? -1
                       : recorder.note("end " + std::string(tag) + " " + fullTag);
        case PDS_PARSE_CB_DATA:
            return recorder.note("data " + std::string(tag) + " " + fullTag + " [" + text + "]"
                                 + std::to_string(entries));
        case PDS_PARSE_CB_CDATA:
            return entries != 0 || attributes != nullptr
                       ? -1
                       : recorder.note("cdata " + std::string(tag) + " " + fullTag + " [" + text + "]");
        }
        return -1;
    }

    int note(std::string event)
    {
        events.push_back(std::move(event));
        return events.size() == stopAt ? answer : 0;
    }

private:
    static Recorder& of(void* context)
    {
        return *static_cast<Recorder*>(context);
    }
    static std::string listed(std::size_t entries, char** attributes)
    {
        std::string text;
        for (std::size_t i = 0; i < entries; i += 2) {
            text += std::string(" ") + attributes[i] + "=[" + attributes[i + 1] + "]";
        }
        if (attributes[entries] != nullptr) {
            text += " (no null entry)";
        }
        return text;
    }
};

/** A push parser with the three separate callbacks or with the common one. */
class PushParser
{
public:
    explicit PushParser(Recorder& recorder, bool common = false)
    {
        initCode = nim_pdsParseInit(0, &recorder, Recorder::tagStart, Recorder::tagEnd, Recorder::data,
                                    common ? Recorder::common : nullptr, nullptr, &handle);
    }
    ~PushParser()
    {
        nim_pdsParseDestroy(&handle);
    }
    PushParser(const PushParser&) = delete;
    PushParser& operator=(const PushParser&) = delete;

    int push(const std::string& text, int flags = 0)
    {
        return nim_pdsParseBuffer(const_cast<char*>(text.c_str()), flags, handle);
    }
    int parse(const std::string& text, int flags = 0)
    {
        return push(text, flags | PDS_PARSE_F_LAST);
    }
    std::string error() const
    {
        return nim_pdsParseGetErrorInfo(handle);
    }

    PDS_PARSE_H handle = nullptr;
    int initCode = -1;
};

}

#endif
