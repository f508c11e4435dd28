#ifndef DALNIM_XML_SRC_ELEMENTPATH_HPP
#define DALNIM_XML_SRC_ELEMENTPATH_HPP

#include "TextScan.hpp"

#include <dalnim/String.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

namespace com::kor::dal::nim::xml {

/**
 * A stack of offsets that takes memory only where a document nests deeper than most do. It is never
 * empty: below all lies a -1, which stays.
 */
class OffsetStack
{
public:
    OffsetStack() : top(near), limit(near + NEAR - 1)
    {
        *top = -1;
    }
    OffsetStack(const OffsetStack&) = delete;
    OffsetStack& operator=(const OffsetStack&) = delete;

    std::ptrdiff_t last() const
    {
        return *top;
    }
    /** May throw `std::bad_alloc`. */
    void push(std::size_t offset)
    {
        if (top == limit) {
            grow();
        }
        *++top = static_cast<std::ptrdiff_t>(offset);
    }
    void pop()
    {
        --top;
    }

private:
    static constexpr std::size_t NEAR = 32;

    [[gnu::noinline, gnu::cold]] void grow()
    {
        std::ptrdiff_t* const begin = far.empty() ? near : far.data();
        const std::ptrdiff_t used = top - begin;
        std::vector<std::ptrdiff_t> grown(2 * (static_cast<std::size_t>(used) + 1));
        std::copy(begin, top + 1, grown.begin());
        far.swap(grown);
        top = far.data() + used;
        limit = &far.back();
    }

    std::ptrdiff_t* top;
    std::ptrdiff_t* limit;
    std::ptrdiff_t near[NEAR];
    std::vector<std::ptrdiff_t> far;
};

/** The open elements of a parse: the text of their names, and the innermost, which events are told for. */
class ElementPath
{
public:
    /**
     * @param memory for the names, joined by "/"; it keeps what it grows to
     * @param textEnd behind the document in which the tags stand
     */
    ElementPath(String& memory, const char* textEnd)
        : storage(memory), end(textEnd), path(memory.data()), room(memory.size()), used(0), name(path),
          length(0), head(_mm_setzero_si128())
    {
    }

    /** @return false without memory */
    bool open(char* tag, std::size_t tagLength, bool isRoot)
    {
        if (isRoot) {
            used = 0;
        }
        if (used + tagLength + SLACK > room && !grow(used + tagLength + SLACK)) {
            return false;
        }
        if (!isRoot) {
            try {
                slashes.push(used);
            } catch (const std::bad_alloc&) {
                return false;
            }
            path[used++] = '/';
        }
        head = headOf(tag);
        if (tagLength <= sizeof head) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(path + used), head);
        } else {
            std::memcpy(path + used, tag, tagLength);
        }
        used += tagLength;
        path[used] = '\0';
        name = tag;
        length = tagLength;
        return true;
    }

    /** The position behind the innermost element's tag where it stands at `p`, else null. */
    char* skipTag(char* p) const
    {
        if (length != 0 && length <= sizeof head && end - p >= SCAN_WIDTH) {
            const unsigned different = ~bitsOf(_mm_cmpeq_epi8(load(p), head)) & ((1U << length) - 1);
            return different == 0 ? p + length : nullptr;
        }
        return skipTagByBytes(p);
    }

    /** An end tag closes what the path ends with, wherever its "/" stand: "</b>" closes "<ab>". */
    bool closeBy(char* tag, std::size_t tagLength)
    {
        if (tagLength > used || std::memcmp(path + (used - tagLength), tag, tagLength) != 0) {
            return false;
        }
        name = tag;
        length = tagLength;
        return true;
    }

    /** Cuts the tag off the path, with the "/" before it; the innermost element is the one then last. */
    void close()
    {
        std::size_t rest = used - length;
        rest -= rest != 0 ? 1 : 0;
        while (slashes.last() >= static_cast<std::ptrdiff_t>(rest)) {
            slashes.pop();
        }
        const auto parent = static_cast<std::size_t>(slashes.last() + 1);
        used = rest;
        name = path + parent;
        length = rest - parent;
        // Ahead of the NUL: a load that must wait for a byte that was just written is a slow one.
        head = load(name);
        path[rest] = '\0';
    }

    char* tag() const
    {
        return name;
    }
    std::size_t tagLength() const
    {
        return length;
    }
    char* text() const
    {
        return path;
    }

private:
    /** Behind what is used: a "/", a NUL, and as much as is read and written at once. */
    static constexpr std::size_t SLACK = sizeof(__m128i) + 2;
    static constexpr std::size_t SMALLEST = 128;

    /** The bytes from `tag` on, of which those behind the end of the document mean nothing. */
    __m128i headOf(const char* tag) const
    {
        if (end - tag >= SCAN_WIDTH) {
            return load(tag);
        }
        char bytes[sizeof(__m128i)] = {};
        std::memcpy(bytes, tag, static_cast<std::size_t>(end - tag));
        return load(bytes);
    }

    [[gnu::noinline]] char* skipTagByBytes(char* p) const
    {
        if (length == 0) {
            return nullptr;
        }
        // What differs may be the NUL that ends the text: no look at what lies behind it.
        for (std::size_t i = 0; i < length; ++i) {
            if (p[i] != name[i]) {
                return nullptr;
            }
        }
        return p + length;
    }

    [[gnu::noinline, gnu::cold]] bool grow(std::size_t needed)
    {
        try {
            storage.resize(std::max({needed, 2 * room, SMALLEST}));
        } catch (const std::bad_alloc&) {
            return false;
        }
        path = storage.data();
        room = storage.size();
        return true;
    }

    /** All of it is to be written to; the text is what `used` says. */
    String& storage;
    const char* const end;
    char* path;
    std::size_t room;
    std::size_t used;
    /** In the document, or the tail of the path. */
    char* name;
    std::size_t length;
    /** The name's first bytes, and what stood behind it. */
    __m128i head;
    /** Where the "/" stand in the path, so that a long path is not searched for each element. */
    OffsetStack slashes;
};

}

#endif
