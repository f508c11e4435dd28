#ifndef DALNIM_JOURNAL_JOURNALLOG_HPP
#define DALNIM_JOURNAL_JOURNALLOG_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Write.hpp>
#include <qv/pmx/api.h>

/** The optional library dalnim-journal: a logger for the systemd journal. */
namespace com::kor::dal::nim::journal {

/**
 * A logger that sends its records to the systemd journal, each as one entry with these fields:
 *
 * | field               | content                                                                           |
 * |---------------------|-----------------------------------------------------------------------------------|
 * | `MESSAGE`           | the text, without trailing white space; it may have several lines                 |
 * | `PRIORITY`          | 2 for FATAL, 3 for ERROR, 4 WARNING, 5 NOTICE, 6 INFO, 7 for DEBUG and TRACE      |
 * | `SYSLOG_IDENTIFIER` | the identifier of this logger                                                     |
 * | `CODE_FILE`         | the source file, with its directory                                               |
 * | `CODE_LINE`         | the line                                                                          |
 * | `TID`               | the ID of the thread that ran the statement                                       |
 * | `DALNIM_MODULE`     | the name of the module                                                            |
 * | `DALNIM_SEVERITY`   | the name of the severity                                                          |
 * | `F_...`             | the fields in the text that log::field() has inserted                             |
 *
 * The name of such a field is written in capital letters after `F_`, with "_" for each other character that
 * is not a digit: log::field("user.id", 17) becomes `F_USER_ID=17`. It is truncated to 64 characters. All
 * words of the text that have the form of a field count, 100 at most; see log::FieldReader.
 *
 * The journal adds the time, the host, the process and the service. For example, `journalctl
 * DALNIM_MODULE=disks -p warning` prints the serious records of one module.
 *
 * Which records pass is decided by threshold, severity mask and module filter, as in every Write. The other
 * settings apply to the output of the Write, which is the fallback: a record that the journal does not
 * accept, because there is none for example, is written there as a line; by default to standard error. The
 * operations that describe the output, such as getStream() and getPath(), refer to the fallback, too.
 *
 * This logger cannot replace the default logger. It receives the records of the modules that are registered
 * with it: those of NIM_LOG_TO(), or of NIM_LOG() in sources whose `com_kor_dal_nim_log_module` is such a
 * module.
 *
 * Any thread may call any operation, and records of several threads are sent concurrently. The entry has been
 * queued for the journal when the statement returns; a statement waits if the queue is full.
 */
class DALNIM_API JournalLog : public log::Write
{
public:
    static constexpr const char CLASS_NAME[] = "JournalLog";

    /**
     * @param identifier  the `SYSLOG_IDENTIFIER` of the entries, by which `journalctl -t` selects them. If it
     * is empty, the name of the executable.
     * @throws sys::system_error  if the identifier is empty, and the executable has no name that can be read
     * @throws std::bad_alloc  if memory runs out
     */
    explicit JournalLog(const String& identifier = String());
    ~JournalLog() override;

    /**
     * Sends a record, or writes it to the fallback if the journal does not accept it.
     * @throws std::bad_alloc  if memory runs out; nothing is sent or written
     * @throws std::exception  any exception of Write::log(), if the record is written to the fallback
     */
    void log(const log::Module& mod, const log::Header& rec, bool force) override;

protected:
    using log::Write::log;

private:
    /** Returns false if the journal does not accept the record. */
    __attribute__((visibility("hidden"))) bool send(const log::Module& mod, const log::Header& rec) const;

    const String identifierField;
};

}

#endif
