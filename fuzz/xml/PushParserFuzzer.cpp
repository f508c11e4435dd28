// The push parser, compared with a simple model. The first three bytes of the input select the flags and the
// kind of callbacks, the event with an action and that action, and the chunk size. A byte 0 in the rest ends
// one document and starts the next on the same handle.

#include <fuzz/support/Require.hpp>
#include <tests/xml/ParserModel.hpp>
#include <tests/xml/ParserSubject.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using parsermodel::Action;
using parsermodel::ParserModel;
using parsermodel::ParserSubject;
using parsermodel::Script;
using parsermodel::Thrown;

constexpr std::size_t CHOICES = 3;
constexpr int THROWN = -1;

template <class Parser>
int push(Parser& parser, const std::string& piece, int flags)
{
    try {
        return parser.parseBuffer(piece, flags);
    } catch (const Thrown&) {
        return THROWN;
    }
}

Script scriptOf(std::uint8_t choice)
{
    const int action = choice % 8;
    Script script;
    if (action <= static_cast<int>(Action::PushNull)) {
        script[choice / 8] = static_cast<Action>(action);
    } else if (action == static_cast<int>(Action::Reset)) {
        script[choice / 8] = Action::Reset;
        script[choice / 8 + 1] = Action::PushTwiceAndStop;
    } else {
        // Two in a row: a nested push.
        script[choice / 8] = Action::Push;
        script[choice / 8 + 1] = Action::Push;
    }
    return script;
}

void compare(ParserModel& model, ParserSubject& subject, const std::string& text, int flags,
             std::size_t length)
{
    length = length == 0 ? text.size() + 1 : length;
    for (std::size_t start = 0; start <= text.size(); start += length) {
        const bool last = text.size() - start < length;
        const int piece_flags = flags | (last ? PDS_PARSE_F_LAST : 0);
        const std::string piece = text.substr(start, length);
        require(push(subject, piece, piece_flags) == push(model, piece, piece_flags));
    }
    require(subject.events() == model.events());
    require(subject.hasError(model.error()));
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < CHOICES) {
        return 0;
    }
    const int flags = data[0] & (PDS_PARSE_F_SKIP_WS | PDS_PARSE_F_NULL_ATTR);
    const bool common = (data[0] & 1) != 0;
    const Script script = scriptOf(data[1]);
    const std::string documents(reinterpret_cast<const char*>(data) + CHOICES, size - CHOICES);

    ParserModel model(common, 0);
    ParserSubject subject(common, 0);
    std::uintptr_t user_data = 1;
    for (std::size_t start = 0; start <= documents.size(); ++user_data) {
        const std::string text = documents.c_str() + start;
        model.reset(user_data, script);
        subject.reset(user_data, script);
        compare(model, subject, text, flags, data[2]);
        start += text.size() + 1;
    }
    return 0;
}
