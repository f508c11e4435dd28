#include <dalnim/dalbase.hpp>

#include <dalnim/log/Log.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <qv/pmx/src/CancellationOff.hpp>
#include <dalnim/log/src/CurrentPrefix.hpp>
#include <dalnim/log/src/EscapedText.hpp>
#include <dalnim/log/src/LineBuffer.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/log/src/PrefixFormat.hpp>
#include <dalnim/log/src/RecordMutex.hpp>
#include <dalnim/log/src/RecordPrefix.hpp>
#include <dalnim/log/src/RecordPriority.hpp>
#include <dalnim/log/src/StreamOutput.hpp>
#include <dalnim/sys/StackTrack.hpp>

#include <ostream>

namespace com::kor::dal::nim::log {

Log::Log() noexcept = default;
Log::~Log() = default;

void Log::log(const Module& mod, const Header& rec, bool force)
{
    const sys::StackTrack track("log()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!force && !isSeveritySatisfied(rec.getSeverityId())) {
        return;
    }
    const RecordPriority priority(rec.getSeverityId());
    const RecordLock lock;
    String record = format(mod, rec);
    const std::size_t prefixLength = record.size();
    record.append(rec.text());
    const CurrentPrefix prefix(std::string_view(record).substr(0, prefixLength));
    log(record);
}

String Log::format(const Module& mod, const Header& rec)
{
    LineBuffer prefix;
    unsigned int format = getOutputMask();
    bool escapesControls = false;
    if (PrefixFormat::hasOptions.load(std::memory_order_relaxed)) {
        format = PrefixFormat::pack(format, getTimeFormat());
        escapesControls = needsEscape(mod.getName()) && getEscapeControls();
    }
    RecordPrefix(format, mod, rec, escapesControls).appendTo(prefix);
    return String(prefix.view());
}

void Log::log(const String& msg)
{
    LineBuffer line;
    line.append(msg);
    terminateLine(line, CurrentPrefix::lengthIn(msg));
    auto* const stream = dynamic_cast<std::ostream*>(getStream());
    const qv::CancellationOff uncut;
    bool isWritten = false;
    if (stream != nullptr && StreamOutput::isDirect(*stream)) {
        isWritten = StreamOutput::write(*stream, line.view());
    } else if (stream != nullptr && !!*stream) {
        // An exception that the stream throws reaches the statement; the record may have been written.
        LineBuffer lines;
        const std::string_view text = StreamOutput::prefixed(*stream, line.view(), lines);
        stream->write(text.data(), static_cast<std::streamsize>(text.size())).flush();
        isWritten = true;
    }
    if (!isWritten) {
        StreamOutput::writeToFallback(line.view());
    }
}

void Log::switchFile() {}

}
