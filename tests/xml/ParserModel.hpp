#ifndef TESTS_XML_PARSERMODEL_HPP
#define TESTS_XML_PARSERMODEL_HPP

#include "ModelText.hpp"
#include "ParserEvents.hpp"

#include <optional>
#include <utility>

namespace parsermodel {

/**
 * A second implementation of the push parser, as a plain state machine over single bytes, which the tests
 * compare with the first. It writes the same NULs into its copy of the text, because error messages show
 * them.
 */
class ParserModel
{
public:
    static constexpr int OK = 0;
    static constexpr int E_CALLBACK = 700012002;
    static constexpr int E_SYNTAX = 700012003;
    static constexpr int E_PREVIOUS = 700012004;
    static constexpr int E_DONE = 700012005;
    static constexpr int E_PUSH_CONTEXT = 700012006;
    static constexpr int E_BAD_ARGS = 700012901;

    static constexpr int LAST = 1;
    static constexpr int SKIP_WS = 2;
    static constexpr int NULL_ATTR = 4;

    enum Type { TAG_START, TAG_END, DATA, CDATA };

    ParserModel(bool common, std::uintptr_t user_data) : original_(common ? 0 : SEPARATE)
    {
        reset(user_data, {});
    }

    /** Prepares the model for another document, in which callbacks act as the script says. */
    void reset(std::uintptr_t user_data, Script script)
    {
        callback_ = original_;
        userData_ = user_data;
        userDataAlt_ = user_data;
        script_ = std::move(script);
        text_.clear();
        error_.clear();
        events_.clear();
        pushed_.clear();
        attributes_.clear();
        failed_ = false;
        done_ = false;
        inStart_ = 0;
        depth_ = 0;
        pushError_ = OK;
        resetPending_ = false;
    }

    /** @throws Thrown if the script contains Action::Throw */
    int parseBuffer(const std::string& piece, int flags)
    {
        if (failed_) {
            return E_PREVIOUS;
        }
        if (done_) {
            return E_DONE;
        }
        text_.append(piece);
        if ((flags & LAST) == 0) {
            return OK;
        }
        done_ = true;
        if (text_.size() == 0) {
            return OK;
        }
        flags_ = flags;
        try {
            const int result = run();
            failed_ = result != OK;
            resetIfPending();
            return result;
        } catch (const Thrown&) {
            resetIfPending();
            throw;
        }
    }

    const std::vector<Event>& events() const
    {
        return events_;
    }

    /** Returns the whole message, which may contain NULs. */
    const std::string& error() const
    {
        return error_;
    }

private:
    /** Performs a reset that a callback requested. Keeps the events and the script of the document. */
    void resetIfPending()
    {
        if (resetPending_) {
            std::vector<Event> events;
            events.swap(events_);
            reset(userData_, std::move(script_));
            events_.swap(events);
        }
    }

    enum class State { Comment, Top, TagName, TagOpen, TagEmpty, Attributes, EndTag, Content, CData };

    /** The result of the parse, or nothing if the parse continues. */
    typedef std::optional<int> Outcome;

    struct Pushed
    {
        int callback;
        std::uintptr_t userDataAlt;
        int depth;
    };

    int run()
    {
        mark_ = 0;
        state_ = State::Top;
        remembered_ = State::Top;
        rootSeen_ = false;
        tag_.clear();
        while (text_.isPast() || text_.byte() != '\0' || state_ == State::TagEmpty) {
            if (const Outcome outcome = step()) {
                return *outcome;
            }
        }
        if (state_ == State::Top) {
            return OK;
        }
        mark_ = mark_ < 8 ? 0 : mark_ - 8;
        return syntaxError("Premature end of data stream (not at top-level)");
    }

    Outcome step()
    {
        switch (state_) {
        case State::Comment:
            return comment();
        case State::Top:
            return top();
        case State::TagName:
            return tagName();
        case State::TagOpen:
        case State::TagEmpty:
            return startTag();
        case State::Attributes:
            return attribute();
        case State::EndTag:
            return endTag();
        case State::Content:
            return content();
        case State::CData:
            return cdata();
        }
        return OK;
    }

    Outcome top()
    {
        while (ModelText::isSpace(text_.byte())) {
            text_.step();
        }
        mark_ = text_.position();
        if (text_.byte() == '\0') {
            return std::nullopt;
        }
        if (text_.byte() != '<') {
            return syntaxError("Invalid data contained outside a top-level Element");
        }
        if (text_.startsWith("<!--")) {
            text_.step(4);
            remembered_ = State::Top;
            state_ = State::Comment;
            return std::nullopt;
        }
        if (text_.startsWith("<?")) {
            return processingInstruction();
        }
        if (text_.startsWith("<!DOCTYPE ")) {
            text_.step(10);
            return docType();
        }
        if (rootSeen_) {
            return syntaxError("Multiple top-level Elements encountered");
        }
        rootSeen_ = true;
        text_.step();
        state_ = State::TagName;
        return std::nullopt;
    }

    Outcome processingInstruction()
    {
        if (!text_.moveTo("?>")) {
            return syntaxError("Invalid processing instruction: '<?' without a matching '?>'");
        }
        text_.step(2);
        return std::nullopt;
    }

    Outcome docType()
    {
        int open = 0;
        while (text_.byte() != '\0') {
            const char byte = text_.byte();
            text_.step();
            if (byte == '<') {
                ++open;
            } else if (byte == '>' && open == 0) {
                return std::nullopt;
            } else if (byte == '>') {
                --open;
            }
        }
        return syntaxError("DOCTYPE tag is not properly terminated - reached End Of Document");
    }

    Outcome comment()
    {
        if (!text_.moveTo("-->")) {
            return syntaxError("Comment not terminated");
        }
        text_.step(3);
        state_ = remembered_;
        return std::nullopt;
    }

    Outcome tagName()
    {
        mark_ = text_.position();
        if (!ModelText::isNameStart(text_.byte())) {
            return syntaxError("Element name [Start Tag] starts with an invalid character");
        }
        while (ModelText::isName(text_.byte())) {
            text_.step();
        }
        const char stop = text_.byte();
        if (!ModelText::isSpace(stop) && stop != '>' && stop != '/') {
            return syntaxError("Element name [Start Tag] contains an invalid character");
        }
        text_.put('\0');
        text_.step();
        tag_ = text_.string(mark_);
        path_ = depth_ == 0 ? tag_ : path_ + "/" + tag_;
        ++depth_;
        attributes_.clear();
        if (stop == '>') {
            state_ = State::TagOpen;
        } else if (stop == '/' && text_.byte() == '>') {
            text_.step();
            state_ = State::TagEmpty;
        } else {
            state_ = State::Attributes;
        }
        return std::nullopt;
    }

    Outcome attribute()
    {
        while (ModelText::isSpace(text_.byte())) {
            text_.step();
        }
        if (text_.byte() == '\0') {
            return std::nullopt;
        }
        mark_ = text_.position();
        if (text_.byte() == '>') {
            text_.step();
            state_ = State::TagOpen;
            return std::nullopt;
        }
        if (text_.startsWith("/>")) {
            text_.step(2);
            state_ = State::TagEmpty;
            return std::nullopt;
        }
        if (!ModelText::isNameStart(text_.byte())) {
            return syntaxError("Attribute name  starts with an invalid character");
        }
        while (ModelText::isName(text_.byte())) {
            text_.step();
        }
        if (text_.byte() != '=') {
            return syntaxError("Attribute name doesn't terminate with an '='");
        }
        text_.put('\0');
        text_.step();
        const std::string name = text_.string(mark_);
        if ((flags_ & NULL_ATTR) != 0 && callback_ != SEPARATE && name == "NULL") {
            if (const Outcome outcome = nullAttributeEvent()) {
                return outcome;
            }
        }
        for (std::size_t i = 0; i < attributes_.size(); i += 2) {
            if (attributes_[i] == name) {
                return syntaxError("Duplicate attribute name");
            }
        }
        attributes_.push_back(name);
        return attributeValue();
    }

    Outcome attributeValue()
    {
        const char quote = text_.byte();
        if (quote != '"' && quote != '\'') {
            return syntaxError("Attribute value doesn't start with a quote");
        }
        text_.step();
        mark_ = text_.position();
        while (text_.byte() != quote) {
            if (text_.byte() == '\0') {
                return syntaxError("Attribute value doesn't end with a quote");
            }
            if (text_.byte() == '\n' || text_.byte() == '\r') {
                text_.put(' ');
            }
            text_.step();
        }
        text_.put('\0');
        text_.step();
        if (!text_.expand(mark_)) {
            return syntaxError("Unrecognized special symbol");
        }
        attributes_.push_back(text_.string(mark_));
        return std::nullopt;
    }

    Outcome startTag()
    {
        inStart_ = 1;
        Event event = commonEvent(TAG_START);
        addAttributes(event);
        const Outcome stopped = deliver(std::move(event));
        inStart_ = 0;
        if (stopped) {
            return stopped;
        }
        if (state_ == State::TagEmpty) {
            return endElement();
        }
        state_ = State::Content;
        return std::nullopt;
    }

    Outcome endTag()
    {
        mark_ = text_.position();
        if (!ModelText::isNameStart(text_.byte())) {
            return syntaxError("Element name [End Tag] starts with an invalid character");
        }
        while (ModelText::isName(text_.byte())) {
            text_.step();
        }
        char stop = text_.byte();
        text_.put('\0');
        text_.step();
        while (ModelText::isSpace(stop)) {
            stop = text_.byte();
            text_.step();
        }
        if (stop != '>') {
            return syntaxError("Element name [End Tag] contains an invalid character");
        }
        tag_ = text_.string(mark_);
        if (tag_.size() > path_.size() || path_.substr(path_.size() - tag_.size()) != tag_) {
            return syntaxError("Mismatched End Tag");
        }
        return endElement();
    }

    Outcome endElement()
    {
        if (const Outcome stopped = deliver(commonEvent(TAG_END))) {
            return stopped;
        }
        path_.resize(path_.size() - tag_.size());
        if (!path_.empty()) {
            path_.pop_back();
        }
        --depth_;
        const std::size_t slash = path_.rfind('/');
        tag_ = slash == std::string::npos ? path_ : path_.substr(slash + 1);
        if (!pushed_.empty() && pushed_.back().depth > depth_) {
            callback_ = pushed_.back().callback;
            userDataAlt_ = pushed_.back().userDataAlt;
            pushed_.pop_back();
        }
        state_ = depth_ == 0 ? State::Top : State::Content;
        return std::nullopt;
    }

    Outcome content()
    {
        mark_ = text_.position();
        if (text_.byte() != '<') {
            return textRun();
        }
        text_.put('\0');
        text_.step();
        if (text_.byte() == '/') {
            text_.step();
            state_ = State::EndTag;
        } else if (text_.startsWith("!--")) {
            text_.step(3);
            remembered_ = State::Content;
            state_ = State::Comment;
        } else if (text_.startsWith("!DOCTYPE ")) {
            text_.step(9);
            return docType();
        } else if (text_.byte() == '!') {
            text_.step(8);
            remembered_ = State::Content;
            state_ = State::CData;
        } else if (text_.byte() == '?') {
            return processingInstruction();
        } else {
            state_ = State::TagName;
        }
        return std::nullopt;
    }

    Outcome textRun()
    {
        while (text_.byte() != '<' && text_.byte() != '\0') {
            text_.step();
        }
        const char saved = text_.byte();
        text_.put('\0');
        if (!text_.expand(mark_)) {
            return syntaxError("Unrecognized special symbol");
        }
        const std::string run = text_.string(mark_);
        bool blank = true;
        for (const char byte : run) {
            blank = blank && ModelText::isSpace(byte);
        }
        if ((flags_ & SKIP_WS) == 0 || !blank) {
            Event event = commonEvent(DATA);
            addData(event, run);
            addAttributes(event);
            if (const Outcome stopped = deliver(std::move(event))) {
                return stopped;
            }
        }
        text_.put(saved);
        return std::nullopt;
    }

    Outcome cdata()
    {
        mark_ = text_.position();
        if (!text_.moveTo("]]>")) {
            return syntaxError("CDATA segment not terminated");
        }
        text_.put('\0');
        Event event = commonEvent(CDATA);
        addData(event, text_.string(mark_));
        if (const Outcome stopped = deliver(std::move(event))) {
            return stopped;
        }
        text_.step(3);
        state_ = remembered_;
        return std::nullopt;
    }

    Outcome nullAttributeEvent()
    {
        Event event = commonEvent(DATA);
        addData(event, "");
        addAttributes(event);
        event.numAttributes = 0;
        return deliver(std::move(event));
    }

    Event commonEvent(Type type) const
    {
        Event event;
        event.type = type;
        event.tag = tag_;
        event.fullTag = path_;
        return event;
    }

    static void addData(Event& event, const std::string& data)
    {
        event.hasData = true;
        event.data = data;
    }

    void addAttributes(Event& event) const
    {
        event.numAttributes = attributes_.size();
        event.hasAttributes = true;
        for (const std::string& entry : attributes_) {
            event.attributes.emplace_back(entry);
        }
    }

    /** Records the event as the current callback receives it, and acts as the script says. */
    Outcome deliver(Event event)
    {
        event.callback = callback_;
        event.userData = userData_;
        if (callback_ == SEPARATE) {
            if (event.hasData) {
                event.tag.clear();
            }
            if (event.type != TAG_START) {
                event.numAttributes = 0;
                event.hasAttributes = false;
                event.attributes.clear();
            }
        } else {
            event.userDataAlt = userDataAlt_;
        }
        const std::size_t number = events_.size();
        const auto scripted = script_.find(number);
        const Action action = scripted == script_.end() ? Action::GoOn : scripted->second;
        bool pushedTwice = false;
        if (action == Action::Push || action == Action::PushTwice || action == Action::PushTwiceAndStop) {
            event.pushes.push_back(push(number));
        }
        if (action == Action::PushTwice || action == Action::PushTwiceAndStop) {
            pushedTwice = inStart_ == 2;
            event.pushes.push_back(push(number));
        }
        if (action == Action::PushNull) {
            event.pushes.push_back(E_BAD_ARGS);
        }
        if (action == Action::Reset) {
            resetPending_ = true;
        }
        events_.push_back(std::move(event));
        if (action == Action::Throw) {
            throw Thrown();
        }
        if (pushedTwice) {
            return E_PUSH_CONTEXT;
        }
        if (action == Action::Stop || action == Action::PushTwiceAndStop) {
            return E_CALLBACK;
        }
        if (pushError_ != OK) {
            return pushError_;
        }
        return std::nullopt;
    }

    int push(std::size_t event)
    {
        if (inStart_ != 1) {
            pushError_ = E_PUSH_CONTEXT;
            return E_PUSH_CONTEXT;
        }
        inStart_ = 2;
        pushed_.push_back({callback_, userDataAlt_, depth_});
        callback_ = pushedCallback(event);
        userDataAlt_ = pushedUserData(event);
        return OK;
    }

    int syntaxError(const std::string& message)
    {
        error_ = message + " -- near offset " + std::to_string(mark_) + ": " + text_.bytes(mark_, 16) + "...";
        return E_SYNTAX;
    }

    const int original_;
    int callback_ = SEPARATE;
    std::uintptr_t userData_ = 0;
    std::uintptr_t userDataAlt_ = 0;
    Script script_;
    std::vector<Pushed> pushed_;

    ModelText text_;
    int flags_ = 0;
    std::size_t mark_ = 0;
    State state_ = State::Top;
    State remembered_ = State::Top;
    bool rootSeen_ = false;

    std::string tag_;
    std::string path_;
    std::vector<std::string> attributes_;
    int depth_ = 0;

    bool failed_ = false;
    bool done_ = false;
    int inStart_ = 0;
    int pushError_ = OK;
    bool resetPending_ = false;
    std::vector<Event> events_;
    std::string error_;
};

}

#endif
