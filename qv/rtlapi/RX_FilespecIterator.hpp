#ifndef QV_RTLAPI_RX_FILESPECITERATOR_HPP
#define QV_RTLAPI_RX_FILESPECITERATOR_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/glob.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Filespec.hpp>
#include <qv/rtlapi/RX_String.hpp>

/**
 * Iterates over the files that match a name with wildcards, sorted bytewise.
 *
 * The last component of the name is a pattern of style RX_Wildcard::WILD; its directory is used verbatim. For
 * example, `P.<->` matches files that are named P, a dot and a decimal number. If P may contain wildcards,
 * append ".<->" to `RX_Filespec::quoted()`. All file types match, including links and directories, except
 * "." and "..".
 *
 * The directory is read once, by the constructor.
 *
 * Thread safety: must not be used by two threads concurrently.
 */
class DALNIM_API RX_FilespecIterator
{
public:
    /**
     * Reads the directory of `spec`. If it does not exist or cannot be read, the iterator has no files, and
     * `status()` returns the error.
     *
     * @param with_directory  whether filespec() starts with the directory of `spec`
     * @throws RX_ExError  22 (EINVAL) if the pattern is malformed; the arguments are the reason and the
     * pattern
     * @throws std::bad_alloc
     */
    RX_FilespecIterator(const RX_Filespec& spec, qv_bool_t with_directory);
    RX_FilespecIterator(const RX_FilespecIterator&) = delete;
    RX_FilespecIterator& operator=(const RX_FilespecIterator&) = delete;
    ~RX_FilespecIterator();

    /** Advances to the next file, initially to the first one. Returns 0 at the end. */
    qv_bool_t next();

    /** Returns the current file; empty before the first `next()` and at the end. */
    const RX_String& filespec() const
    {
        return _current;
    }

    /** Returns 0, or the error from reading the directory. */
    qv_err_t status() const
    {
        return _status;
    }

private:
    RX_String _prefix;
    RX_String _current;
    qv_glob_t _glob;
    qv_err_t _status;
};

#endif
