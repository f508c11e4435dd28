#ifndef QV_RTLAPI_RX_FILESPECITERATOR_HPP
#define QV_RTLAPI_RX_FILESPECITERATOR_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/glob.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Filespec.hpp>
#include <qv/rtlapi/RX_String.hpp>

/**
 * The files that a specification with wildcards matches, in the byte order of their names.
 *
 * The last component of the specification is a pattern in the style WILD of RX_Wildcard; the directory
 * is taken as it stands. So `P.<->` walks the files that are named P, a dot, and a decimal number. Where
 * P may hold wildcard characters itself, `RX_Filespec::quoted` gives the text to append ".<->" to.
 * Names of every kind of file are given, links and directories too, except for "." and "..".
 *
 * The directory is read once, by the constructor. One thread at a time uses an iterator.
 */
class DALNIM_API RX_FilespecIterator
{
public:
    /**
     * Reads the directory of `spec`. With `with_directory` the names given begin with that directory,
     * as in `spec`; without, they are bare.
     *
     * A directory that is missing or cannot be read gives no file, and `status()` tells why. A bad
     * pattern raises RX_ExError with code 22 (EINVAL), the reason and the pattern, as RX_Wildcard does.
     */
    RX_FilespecIterator(const RX_Filespec& spec, qv_bool_t with_directory);
    RX_FilespecIterator(const RX_FilespecIterator&) = delete;
    RX_FilespecIterator& operator=(const RX_FilespecIterator&) = delete;
    ~RX_FilespecIterator();

    /** Goes to the next file, at first to the first one; 0 when there is none. */
    qv_bool_t next();

    /** The present file; empty before the first `next()` and at the end. */
    const RX_String& filespec() const
    {
        return _current;
    }

    /** 0, or the error number with which reading the directory ended. */
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
