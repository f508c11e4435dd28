#ifndef QV_RTLAPI_RX_FILESPEC_HPP
#define QV_RTLAPI_RX_FILESPEC_HPP

#include <cstddef>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_String.hpp>

/**
 * The name of a file, taken apart without touching the file system, and on demand a check of what the
 * process may do with that file.
 *
 * The name is a path of this host as the system calls take it; nothing in it is decoded. Always
 * `directory()` + `basename()` is `filespec()`.
 *
 * Immutable: any number of threads may use one object at once.
 */
class DALNIM_API RX_Filespec
{
public:
    /** What is wanted of the file. Values may be combined; CREATE alone counts where the file is missing. */
    enum access {
        DONTCARE = 0,
        READ = 1,
        WRITE = 2,
        RW = 3,
        /** To open it for appending, creating it where it is missing. */
        CREATE = 4,
        EXECUTE = 8
    };

    /** What parse() and iparse() take out of a name. */
    enum component {
        /** Always empty: a name has no scheme and no host. */
        SCHEME = 1,
        HOST = 2,
        /** All up to the last slash, and that slash; empty for a name without one. */
        DIRECTORY = 3,
        /** The last component without its ending. */
        FILENAME = 4,
        /** The ending of the last component: its last dot and what follows. Dots in front are no ending. */
        TYPE = 5,
        /** The ending of FILENAME: ".tar" in "x.tar.gz". */
        SUBTYPE = 6,
        /** FILESPEC from the root, put behind the working directory if need be. */
        COMPLETE = 7,
        /** The whole name, as it was given. */
        FILESPEC = 8,
        /** The last component with its ending: all behind the last slash. */
        BASENAME = 9
    };

    /** Values of the constructor's `options`. */
    enum option : si_uint16_t {
        CHECK_RIGHTS = 0,
        /** Leaves the check to whoever opens the file, which need not exist yet. */
        DEFER_CHECK = 1
    };

    /**
     * Takes `spec`, which may be empty, and unless `options` has DEFER_CHECK, checks it for `rights`.
     *
     * The check asks for the effective user and group and alters nothing; no file is opened. READ, WRITE
     * and EXECUTE are what the mode, the access lists and the file system allow (of a directory: to
     * list it, to alter it, to enter it). CREATE is writing if the file is there, else to alter the
     * directory that it, or the last target of a dangling link, would stand in. What only an open can
     * tell stays unseen, such as a program that is running (ETXTBSY) or a full disk.
     *
     * A right that is refused raises RX_ExWarning with code 13 (EACCES). Any other obstacle raises
     * RX_ExError with its `errno` value: 2 no such file or directory, or an empty name; 20 a file in
     * a directory's place; 21 for CREATE, a directory in the file's place or a slash at the end; 22 a
     * zero byte in the name; 30 a file system that is read-only; 36 a name too long; 40 links in a
     * circle. The first argument is the name.
     */
    RX_Filespec(const RX_String& spec, access rights, si_uint16_t options);

    /** All up to the last slash, and that slash; empty for a name without one. */
    RX_String directory() const
    {
        return parse(DIRECTORY);
    }
    /** All behind the last slash. */
    RX_String basename() const
    {
        return parse(BASENAME);
    }
    /** The whole name, as it was given. */
    RX_String filespec() const
    {
        return parse(FILESPEC);
    }

    /** One component. COMPLETE raises RX_ExError if the working directory is gone. */
    RX_String parse(component part) const;

    /**
     * One piece of a component that has several: the directory at `index` of DIRECTORY, without
     * slashes and from 0 at the outermost; the ending at `index` of TYPE, from 0 at the last. Of any
     * other component piece 0 is the whole. Empty where there is no such piece.
     */
    RX_String iparse(component part, int index) const;

    /**
     * The name as RX_FilespecIterator is to see it for this file alone: the wildcards of `basename()`
     * stand behind backslashes. Append to it to find names that begin like this one.
     */
    RX_String quoted() const;

private:
    RX_String piece(std::size_t from, std::size_t to) const;
    RX_String complete() const;
    std::size_t endingBefore(std::size_t end) const;
    RX_String endingAt(int index) const;
    RX_String directoryAt(int index) const;

    RX_String _spec;
    std::size_t _baseOffset;
};

#endif
