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

/** Returns the position of the next literal byte: `pos`, or the one after a backslash. */
const char* unquote(const char* pos)
{
    if (*pos != '\\') {
        return pos;
    }
    if (pos[1] == '\0') {
        throw std::invalid_argument("trailing backslash");
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

/** Parses a set, from the position after `[`. Returns the position after `]`. */
const char* WildPattern::addSet(const char* pos)
{
    const bool negated = *pos == '!' || *pos == '^';
    if (negated) {
        ++pos;
    }

    ByteSet bytes;
    for (bool leading = true; leading || *pos != ']'; leading = false) {
        if (*pos == '\0') {
            throw std::invalid_argument("missing ]");
        }
        pos = unquote(pos);
        const std::size_t low = code(*pos++);
        std::size_t high = low;
        if (pos[0] == '-' && pos[1] != ']' && pos[1] != '\0') {
            pos = unquote(pos + 1);
            high = code(*pos++);
        }
        if (high < low) {
            throw std::invalid_argument("range end precedes range start");
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

/**
 * The states of a nondeterministic automaton that are reachable by the bytes read so far. In state i, tokens
 * 0 to i-1 have matched; the state after the last token accepts.
 *
 * Following all states in parallel bounds the time. Backtracking to the last star would be sufficient if
 * there were no numbers; but a number may have to yield digits to several tokens after it, and backtracking
 * to every choice takes exponential time.
 */
class WildPattern::ActiveStates
{
public:
    explicit ActiveStates(const std::vector<Token>& tokens) : _tokens(tokens)
    {
        if (tokens.size() >= _inlineStorage.size()) {
            _heapStorage = std::make_unique<unsigned char[]>(tokens.size() + 1);
            _isActive = _heapStorage.get();
        }
        activate(0);
    }

    /** Reads one byte. Returns false if no state is active any more. */
    bool advance(char byte);

    bool isAccepting() const
    {
        return _isActive[_tokens.size()] != 0;
    }

private:
    bool tokenAccepts(std::size_t token, char byte) const
    {
        return _tokens[token].bytes.test(code(byte));
    }
    bool isBeforeStar(std::size_t state) const
    {
        return state < _tokens.size() && _tokens[state].optional;
    }
    void activate(std::size_t state);

    const std::vector<Token>& _tokens;
    std::array<unsigned char, 256> _inlineStorage{};
    std::unique_ptr<unsigned char[]> _heapStorage;
    /** One flag per state, in one of the two storages. */
    unsigned char* _isActive = _inlineStorage.data();
    /** The range of states that need to be examined: all active states are within it. */
    std::size_t _first = 0;
    std::size_t _last = 0;
};

void WildPattern::ActiveStates::activate(std::size_t state)
{
    _isActive[state] = 1;
    _last = std::max(_last, state);
    if (isBeforeStar(state)) {
        activate(state + 1);
    }
}

// Iterates downwards, so that each state sees its predecessor as it was before this byte.
bool WildPattern::ActiveStates::advance(char byte)
{
    const std::size_t highest = std::min(_last + 1, _tokens.size());
    const std::size_t lowest = _first;
    _last = 0;
    bool isAnyActive = false;
    for (std::size_t state = highest + 1; state > lowest;) {
        --state;
        const bool isEntered = state > lowest && _isActive[state - 1] && tokenAccepts(state - 1, byte);
        const bool isRepeated = state < _tokens.size() && _isActive[state] && _tokens[state].repeated
                                && tokenAccepts(state, byte);
        _isActive[state] = 0;
        if (isEntered || isRepeated) {
            activate(state);
            _first = state;
            isAnyActive = true;
            if (isBeforeStar(state)) {
                // A star accepts any bytes: earlier states cannot match more than this one.
                break;
            }
        }
    }
    return isAnyActive;
}

bool WildPattern::matches(const char* text) const
{
    ActiveStates states(_tokens);
    for (; *text != '\0'; ++text) {
        if (!states.advance(*text)) {
            return false;
        }
    }
    return states.isAccepting();
}

}
