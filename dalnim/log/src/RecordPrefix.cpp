#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/RecordPrefix.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/src/DateTimeText.hpp>
#include <dalnim/log/src/EscapedText.hpp>
#include <dalnim/log/src/LineText.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/sys/internal/Internal.hpp>

#include <cstring>

namespace com::kor::dal::nim::log {

namespace {

/** Puts the fields into the line, with a separator between each two. */
class Fields
{
public:
    Fields(LineText& text, unsigned int selected) : line(text), mask(selected), first(true) {}

    /** Lets `put` add a field, if the mask selects it; otherwise it is not even computed. */
    template <class Put>
    Fields& add(Mask bit, Put put)
    {
        if ((mask & bit) != 0) {
            if (!first) {
                line.append(SEPARATOR[0]);
            }
            first = false;
            put(line);
        }
        return *this;
    }

private:
    LineText& line;
    const unsigned int mask;
    bool first;
};

/** The name behind the last "/" of a path. */
std::string_view baseName(const char* path)
{
    const char* const slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

}

void appendPrefix(LineText& line, unsigned int outputMask, const Module& mod, const Header& rec,
                  bool escapesControls)
{
    Fields(line, outputMask)
        .add(Mask_DATETIME, [&](LineText& text) { text.append(DateTimeText(rec.getWhen()).view()); })
        .add(Mask_HOSTNAME, [](LineText& text) { text.append(sys::internal::host_name_text()); })
        .add(Mask_PROCESSNAME, [](LineText& text) { text.append(sys::internal::process_name_text()); })
        .add(Mask_PROCESSID, [](LineText& text) { text.appendNumber(getProcessId()); })
        .add(Mask_THREADID, [&](LineText& text) { text.appendNumber(rec.getThread()); })
        .add(Mask_MODULENAME,
             [&](LineText& text) {
                 escapesControls ? appendEscaped(text, mod.getName())
                                 : static_cast<void>(text.append(mod.getName()));
             })
        .add(Mask_SEVERITY, [&](LineText& text) { text.append(severityText(rec.getSeverityId())); })
        .add(Mask_SOURCEFILE, [&](LineText& text) { text.append(baseName(rec.getFile())); })
        .add(Mask_LINENUMBER, [&](LineText& text) { text.appendNumber(rec.getLine()); });
    line.append(std::string_view(TERMINATOR, TERMINATOR_LENGTH));
}

}
