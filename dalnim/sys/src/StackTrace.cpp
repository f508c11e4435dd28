#include <dalnim/dalbase.hpp>

#include <dalnim/sys/StackTrace.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <ostream>
#include <utility>

namespace com::kor::dal::nim::sys {

StackTrace::StackTrace()
{
    const internal::ThreadState* const thread = internal::ThreadState::find();
    if (thread == nullptr) {
        return;
    }
    // Labels are formatted now, since the tracks are destroyed before a handler reads the exception.
    const StackTrackState& where = thread->where;
    data.reserve(where.size());
    for (auto track = where.rbegin(); track != where.rend(); ++track) {
        data.push_back((*track)->label());
    }
}

StackTrace::StackTrace(const StackTrace& ref) : data(ref.data) {}

StackTrace& StackTrace::operator=(const StackTrace& ref) // NOLINT(cert-oop54-cpp): safe for self-assignment
{
    // Compatibility: the cached string is deliberately kept.
    // The assignment of a vector that throws may leave a part of the labels.
    StringVector copy(ref.data);
    data.swap(copy);
    return *this;
}

StackTrace::~StackTrace() = default;

bool StackTrace::empty() const noexcept
{
    return data.empty();
}

const StringVector& StackTrace::trace() const noexcept
{
    return data;
}

std::ostream& StackTrace::displayFormatted(std::ostream& os, const String& indent, bool numbered) const
{
    if (data.empty()) {
        return os;
    }
    std::size_t n = data.size();
    for (const String& label : data) {
        os << indent;
        if (numbered) {
            // As a string: the base and the grouping of the stream must not apply.
            os << '[' << std::to_string(--n) << "]\t";
        }
        os << label << '\n';
    }
    return os.flush();
}

const String& StackTrace::toString() const
{
    if (str_cache.empty() && !data.empty()) {
        // Not by displayFormatted(): a stream may hide that memory runs out, and the string would be
        // truncated.
        String text;
        for (const String& label : data) {
            text.append(label).push_back('\n');
        }
        str_cache = std::move(text);
    }
    return str_cache;
}

std::ostream& operator<<(std::ostream& os, const StackTrace& trace)
{
    return trace.displayFormatted(os, "  ", true);
}

}
