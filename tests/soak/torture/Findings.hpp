#ifndef TESTS_SOAK_TORTURE_FINDINGS_HPP
#define TESTS_SOAK_TORTURE_FINDINGS_HPP

#include "Round.hpp"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace torture {

/** The sums of a run, or of one round of it. */
struct Figures
{
    /** Records whose statement returned. */
    std::size_t records = 0;
    std::size_t kills = 0;
    std::size_t forks = 0;
    std::size_t lost = 0;
    /** Only a part of the record was found. */
    std::size_t torn = 0;
    /** The record was found whole, but not at the beginning of its line. */
    std::size_t glued = 0;
    std::size_t hung = 0;
    /** Records that were found twice or never written, and processes that ended by themselves. */
    std::size_t wrong = 0;
    /** Old files with a lower free number, which a kill between two renames leaves. */
    std::size_t gaps = 0;
    std::size_t throws = 0;
    std::size_t onStandardError = 0;

    Figures& operator+=(const Figures& other);
    bool isClean() const
    {
        return lost == 0 && torn == 0 && glued == 0 && hung == 0 && wrong == 0;
    }
};

/** Looks for the records of a round in all that it has left behind. */
class Findings
{
public:
    explicit Findings(Round& searched) : round(searched) {}

    void read(std::string_view text, bool isFile);
    /** Adds its result to `figures`. Appends a line for each of the first bad records to `report`. */
    void judge(Figures& figures, std::string& report);

private:
    struct Found
    {
        unsigned int inFiles = 0;
        unsigned int onStandardError = 0;
        bool isPart = false;
    };
    typedef std::pair<unsigned int, unsigned int> Key;
    /** A whole record, and the beginning of its line. */
    struct Beginning
    {
        Key record;
        std::string text;
    };

    void readLine(std::string_view line, bool isFile);
    /** Reads the two numbers of a record. Returns false if they are not complete. */
    bool readKey(std::string_view text, Key& key) const;
    bool isGlued(const Beginning& beginning) const;
    void judgeWriter(const Writer& writer, bool& isKept, Figures& figures, std::string& report) const;

    Round& round;
    std::map<Key, Found> found;
    std::vector<Beginning> beginnings;
    std::size_t prefixLength = std::string::npos;
};

}

#endif
