#ifndef QV_RTLAPI_RX_FILESPEC_HPP
#define QV_RTLAPI_RX_FILESPEC_HPP

#include <cstddef>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_String.hpp>

/**
 * A file name with its components, and an optional check of the access rights of the process. Splitting the
 * name does not access the file system.
 *
 * The name is a local path as used in system calls; nothing in it is decoded. `directory()` + `basename()`
 * always equals `filespec()`.
 *
 * Thread safety: immutable; any number of threads may use one object concurrently.
 */
class DALNIM_API RX_Filespec
{
public:
    /** Access rights, which may be combined. With CREATE, a missing file is not checked for other rights. */
    enum access {
        DONTCARE = 0,
        READ = 1,
        WRITE = 2,
        RW = 3,
        /** Opening the file for appending, creating it if it does not exist. */
        CREATE = 4,
        EXECUTE = 8
    };

    /** Components of a name, for parse() and iparse(). */
    enum component {
        /** SCHEME and HOST are always empty. */
        SCHEME = 1,
        HOST = 2,
        /** Everything up to and including the last slash; empty if there is none. */
        DIRECTORY = 3,
        /** BASENAME without its extension. */
        FILENAME = 4,
        /** The extension of BASENAME: its last dot and the rest. Leading dots do not start an extension. */
        TYPE = 5,
        /** The extension of FILENAME: ".tar" in "x.tar.gz". */
        SUBTYPE = 6,
        /** FILESPEC as an absolute path; a relative one is prefixed with the working directory. */
        COMPLETE = 7,
        /** The whole name, verbatim. */
        FILESPEC = 8,
        /** Everything after the last slash. */
        BASENAME = 9
    };

    /** Values of the constructor's `options`. */
    enum option : si_uint16_t {
        CHECK_RIGHTS = 0,
        /** Does not check: rights are checked when the file is opened. It need not exist. */
        DEFER_CHECK = 1
    };

    /**
     * Splits a name and checks the access rights of the process, unless `rights` is DONTCARE or `options`
     * contains DEFER_CHECK.
     *
     * The check is for the effective user and group. It opens and modifies nothing. READ, WRITE and EXECUTE
     * depend on the file mode, access control lists and the file system (for a directory: listing it,
     * modifying it, searching it). CREATE requires write access to the file if it exists, otherwise write
     * access to its directory, or to that of the last target of a dangling link. Errors that only opening
     * the file reveals are not detected, such as a running program (ETXTBSY) or a full disk.
     *
     * @param spec  the name; may be empty
     * @throws RX_ExWarning  13 (EACCES) if access is denied; the argument is the name
     * @throws RX_ExError  any other `errno` value; the argument is the name.
     *     2 (ENOENT): no such file or directory, or an empty name.
     *     20 (ENOTDIR): a component of the directory is a file.
     *     21 (EISDIR), only for CREATE: the name is that of a directory, or ends in a slash.
     *     22 (EINVAL): the name contains a zero byte.
     *     30 (EROFS): read-only file system.
     *     36 (ENAMETOOLONG): the name is too long.
     *     40 (ELOOP): too many symbolic links.
     */
    RX_Filespec(const RX_String& spec, access rights, si_uint16_t options);

    /** Returns everything up to and including the last slash; empty if there is none. */
    RX_String directory() const
    {
        return parse(DIRECTORY);
    }
    /** Returns everything after the last slash. */
    RX_String basename() const
    {
        return parse(BASENAME);
    }
    /** Returns the whole name, verbatim. */
    RX_String filespec() const
    {
        return parse(FILESPEC);
    }

    /**
     * Returns a component.
     *
     * @throws RX_ExError  for COMPLETE, with an `errno` value, if the working directory cannot be determined:
     *     2 (ENOENT) if it has been removed
     */
    RX_String parse(component part) const;

    /**
     * Returns one part of a component: for DIRECTORY the directory at `index`, without slashes, where 0 is
     * the outermost; for TYPE the extension at `index`, where 0 is the last. Other components have only part
     * 0. Returns the empty string if there is no such part.
     */
    RX_String iparse(component part, int index) const;

    /**
     * Returns the name as a pattern for RX_FilespecIterator that matches only this file: wildcards in
     * `basename()` are escaped by backslashes. Append to it to find names that start with this one.
     */
    RX_String quoted() const;

private:
    RX_String substring(std::size_t from, std::size_t to) const;
    RX_String complete() const;
    std::size_t extensionOffset(std::size_t end) const;
    RX_String extensionAt(int index) const;
    RX_String directoryAt(int index) const;

    RX_String _spec;
    std::size_t _baseOffset;
};

#endif
