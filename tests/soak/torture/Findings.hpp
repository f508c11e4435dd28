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

/** The totals of a run or of one round. */
struct Figures
{
    /** Records whose statement returned. */
    std::size_t records = 0;
    std::size_t kills = 0;
    std::size_t forks = 0;
    std::size_t lost = 0;
    /** Records of which only a part was found. */
    std::size_t torn = 0;
    /** Records that were found whole, but not at the beginning of a line. */
    std::size_t glued = 0;
    std::size_t hung = 0;
    /** Records that were found twice or without having been written, and processes that failed. */
    std::size_t wrong = 0;
    /** Number of times that a kill between two renames left a missing number. */
    std::size_t gaps = 0;
    std::size_t throws = 0;
    std::size_t onStandardError = 0;

    Figures& operator+=(const Figures& other);
    bool isClean() const
    {
        return lost == 0 && torn == 0 && glued == 0 && hung == 0 && wrong == 0;
    }
};

/** Searches the files and the output of a round for its records. */
class Findings
{
public:
    explicit Findings(Round& searched) : round(searched) {}

    void read(std::string_view text, bool isFile);
    /** Adds the results to `figures`, and a line for each of the first bad records to `report`. */
    void judge(Figures& figures, std::string& report);

private:
    struct Found
    {
        unsigned int inFiles = 0;
        unsigned int onStandardError = 0;
        bool isPart = false;
    };
    typedef std::pair<unsigned int, unsigned int> Key;
    /** A whole record, and the part of its line in front of it. */
    struct Beginning
    {
        Key record;
        std::string text;
    };

    void readLine(std::string_view line, bool isFile);
    /** Reads the two numbers of a record. Returns false if they are incomplete. */
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
