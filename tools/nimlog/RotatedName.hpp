#ifndef DALNIM_TOOLS_NIMLOG_ROTATEDNAME_HPP
#define DALNIM_TOOLS_NIMLOG_ROTATEDNAME_HPP

#include <cstddef>
#include <string>
#include <string_view>

namespace nimlog {

/**
 * Position of a file in a log P, increasing from the newest to the oldest: 0 is the live file P, N + 1 is
 * P.N. Files with a date in their names, such as P-20261114, are older than all numbered ones.
 */
typedef std::size_t FileIndex;

/** The index of the newest file that may have a date in its name. */
constexpr FileIndex FIRST_DATED = static_cast<FileIndex>(-1) / 2;

/** A form of compressed files. */
struct Compression
{
    /** The end of the file name, as in ".gz". */
    std::string_view suffix;
    /** The program that decompresses its standard input if its argument is "-dc". */
    const char* program;
};

/** Returns the form of compression that a file name ends with, or null. */
const Compression* compressionOf(std::string_view name);

/** What the name of a rotated file means. */
struct RotatedName
{
    FileIndex index;
    /** Null if the file is not compressed. */
    const Compression* compression;
};

/**
 * Reads the end of the name of a rotated file, after the name of its log, such as ".0", ".3.gz" or
 * "-20261114". Returns false if it is none.
 */
bool readRotatedName(std::string_view end, RotatedName& into);

/** Returns true if `path` is the path of a rotated file of the log `log`. */
bool isRotatedFileOf(const std::string& path, const std::string& log);

}

#endif
