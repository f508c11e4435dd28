#include <qv/pmx/WildPattern.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace qv {

namespace {

const char NUMBER_WILDCARD[] = "<->";
const std::size_t NUMBER_WILDCARD_LENGTH = sizeof NUMBER_WILDCARD - 1;

std::size_t code(char byte)
{
    return static_cast<unsigned char>(byte);
}

std::bitset<256> digits()
{
    std::bitset<256> result;
    for (char digit = '0'; digit <= '9'; ++digit) {
        result.set(code(digit));
    }
    return result;
}

// Steps over a backslash to the byte that it quotes.
const char* unquote(const char* pos)
{
    if (*pos != '\\') {
        return pos;
    }
    if (pos[1] == '\0') {
        throw std::invalid_argument("backslash at the end");
    }
    return pos + 1;
}

}

WildPattern::WildPattern(const char* pattern)
{
    const ByteSet any = ByteSet().set();
    for (const char* pos = pattern; *pos != '\0';) {
        if (*pos == '*') {
            if (_tokens.empty() || !_tokens.back().optional) {
                add(any, true, true);
            }
            ++pos;
        } else if (*pos == '?') {
            add(any);
            ++pos;
        } else if (*pos == '[') {
            pos = addSet(pos + 1);
        } else if (std::strncmp(pos, NUMBER_WILDCARD, NUMBER_WILDCARD_LENGTH) == 0) {
            add(digits(), false, true);
            pos += NUMBER_WILDCARD_LENGTH;
        } else {
            pos = unquote(pos);
            add(ByteSet().set(code(*pos++)));
        }
    }
}

// Reads a set from behind its opening bracket; the result is the place behind the closing one.
const char* WildPattern::addSet(const char* pos)
{
    const bool negated = *pos == '!' || *pos == '^';
    if (negated) {
        ++pos;
    }

    ByteSet bytes;
    for (bool leading = true; leading || *pos != ']'; leading = false) {
        if (*pos == '\0') {
            throw std::invalid_argument("bracket without an end");
        }
        pos = unquote(pos);
        const std::size_t low = code(*pos++);
        std::size_t high = low;
        if (pos[0] == '-' && pos[1] != ']' && pos[1] != '\0') {
            pos = unquote(pos + 1);
            high = code(*pos++);
        }
        if (high < low) {
            throw std::invalid_argument("range in reverse order");
        }
        for (std::size_t byte = low; byte <= high; ++byte) {
            bytes.set(byte);
        }
    }
    add(negated ? ~bytes : bytes);
    return pos + 1;
}

void WildPattern::add(const ByteSet& bytes, bool optional, bool repeated)
{
    _tokens.push_back(Token{bytes, optional, repeated});
}

/*
 * All the places of the pattern that the text read so far can have come to. Place i stands before
 * token i, and the place behind the last token means a match.
 *
 * Following them all at once is what bounds the time. Going back to the last star alone would do
 * without numbers, but a number may have to give digits back to several tokens behind it, and going
 * back to every choice takes exponential time.
 */
class WildPattern::Front
{
public:
    explicit Front(const std::vector<Token>& tokens) : _tokens(tokens)
    {
        if (tokens.size() >= _small.size()) {
            _large = std::make_unique<unsigned char[]>(tokens.size() + 1);
            _reached = _large.get();
        }
        enter(0);
    }

    /** Reads one byte; false when no place is left. */
    bool advance(char byte);

    bool atEnd() const
    {
        return _reached[_tokens.size()] != 0;
    }

private:
    bool takes(std::size_t place, char byte) const
    {
        return _tokens[place].bytes.test(code(byte));
    }
    bool isStar(std::size_t place) const
    {
        return place < _tokens.size() && _tokens[place].optional;
    }
    void enter(std::size_t place);

    const std::vector<Token>& _tokens;
    std::array<unsigned char, 256> _small{};
    std::unique_ptr<unsigned char[]> _large;
    unsigned char* _reached = _small.data();
    // No place outside of these two is of interest.
    std::size_t _first = 0;
    std::size_t _last = 0;
};

void WildPattern::Front::enter(std::size_t place)
{
    _reached[place] = 1;
    _last = std::max(_last, place);
    if (isStar(place)) {
        enter(place + 1);
    }
}

// Goes from the last place to the first, so that each reads its predecessor's state before this byte.
bool WildPattern::Front::advance(char byte)
{
    const std::size_t highest = std::min(_last + 1, _tokens.size());
    const std::size_t lowest = _first;
    _last = 0;
    bool alive = false;
    for (std::size_t place = highest + 1; place > lowest;) {
        --place;
        const bool arrives = place > lowest && _reached[place - 1] && takes(place - 1, byte);
        const bool stays =
            place < _tokens.size() && _reached[place] && _tokens[place].repeated && takes(place, byte);
        _reached[place] = 0;
        if (arrives || stays) {
            enter(place);
            _first = place;
            alive = true;
            if (isStar(place)) {
                // A star holds whatever follows: no earlier place can come to more than it.
                break;
            }
        }
    }
    return alive;
}

bool WildPattern::matches(const char* text) const
{
    Front front(_tokens);
    for (; *text != '\0'; ++text) {
        if (!front.advance(*text)) {
            return false;
        }
    }
    return front.atEnd();
}

}
