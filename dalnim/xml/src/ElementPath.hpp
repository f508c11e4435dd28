#ifndef DALNIM_XML_SRC_ELEMENTPATH_HPP
#define DALNIM_XML_SRC_ELEMENTPATH_HPP

#include "ByteVector.hpp"

#include <dalnim/String.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

namespace com::kor::dal::nim::xml {

/**
 * A stack of offsets that allocates memory only for unusually deep documents. Its bottom entry is -1 and is
 * never popped.
 */
class OffsetStack
{
public:
    OffsetStack() : top(inlineStorage), limit(inlineStorage + INLINE_CAPACITY - 1)
    {
        *top = -1;
    }
    OffsetStack(const OffsetStack&) = delete;
    OffsetStack& operator=(const OffsetStack&) = delete;

    std::ptrdiff_t last() const
    {
        return *top;
    }
    /** @throws std::bad_alloc if the stack cannot grow */
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
    static constexpr std::size_t INLINE_CAPACITY = 32;

    [[gnu::noinline, gnu::cold]] void grow()
    {
        std::ptrdiff_t* const begin = heapStorage.empty() ? inlineStorage : heapStorage.data();
        const std::ptrdiff_t used = top - begin;
        std::vector<std::ptrdiff_t> grown(2 * (static_cast<std::size_t>(used) + 1));
        std::copy(begin, top + 1, grown.begin());
        heapStorage.swap(grown);
        top = heapStorage.data() + used;
        limit = &heapStorage.back();
    }

    std::ptrdiff_t* top;
    std::ptrdiff_t* limit;
    std::ptrdiff_t inlineStorage[INLINE_CAPACITY];
    std::vector<std::ptrdiff_t> heapStorage;
};

/** The path of open elements, and the name of the innermost, to which the next event belongs. */
class ElementPath
{
public:
    /**
     * @param memory  storage for the names, joined by "/". It is not shrunk, so that the next parse reuses it
     * @param textEnd end of the document
     */
    ElementPath(String& memory, const char* textEnd)
        : storage(memory), end(textEnd), path(memory.data()), capacity(memory.size()), used(0), name(path),
          length(0), firstBytes{}
    {
    }

    /**
     * Appends an element.
     * @param tag its name in the document
     * @return false if memory runs out
     */
    bool open(char* tag, std::size_t tagLength, bool isRoot)
    {
        if (isRoot) {
            used = 0;
        }
        if (used + tagLength + SLACK > capacity && !grow(used + tagLength + SLACK)) {
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
        firstBytes = loadFirstBytes(tag);
        if (tagLength <= sizeof firstBytes) {
            store(path + used, firstBytes);
        } else {
            std::memcpy(path + used, tag, tagLength);
        }
        used += tagLength;
        path[used] = '\0';
        name = tag;
        length = tagLength;
        return true;
    }

    /** Returns the position past the innermost element's name if `p` starts with it, otherwise null. */
    char* skipTag(char* p) const
    {
        if (length != 0 && length <= sizeof firstBytes && end - p >= SCAN_WIDTH) {
            const MatchMask different = ~matchMask(load(p) == firstBytes) & firstBytesMask(length);
            return different == 0 ? p + length : nullptr;
        }
        return skipTagByBytes(p);
    }

    /**
     * Makes `tag` the current name if the path ends with it, otherwise returns false. Compatibility: the "/"
     * in the path are ignored, so "</b>" closes "<ab>".
     */
    bool matchEndTag(char* tag, std::size_t tagLength)
    {
        if (tagLength > used || std::memcmp(path + (used - tagLength), tag, tagLength) != 0) {
            return false;
        }
        partialEndTag = partialEndTag || tagLength != length;
        name = tag;
        length = tagLength;
        return true;
    }

    /** Removes the current name and the "/" in front of it. The last name left becomes the current one. */
    void close()
    {
        std::size_t rest = used - length;
        rest -= rest != 0 ? 1 : 0;
        // At most one: the name is no longer than the last one in the path.
        if (slashes.last() >= static_cast<std::ptrdiff_t>(rest)) {
            slashes.pop();
        }
        const auto parent = static_cast<std::size_t>(slashes.last() + 1);
        used = rest;
        name = path + parent;
        length = rest - parent;
        // Before the NUL is stored: loading a vector that overlaps a recent store of one byte stalls.
        firstBytes = load(name);
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
    std::size_t textLength() const
    {
        return used;
    }
    /**
     * Returns true if an end tag was shorter than the name of its element. The path and the depth do not
     * correspond then.
     */
    bool hasPartialEndTag() const
    {
        return partialEndTag;
    }

private:
    /** Bytes reserved past `used`: a "/", a NUL, and the vector that one load or store accesses. */
    static constexpr std::size_t SLACK = sizeof(ByteVector) + 2;
    static constexpr std::size_t MIN_CAPACITY = 128;

    /** Loads the first bytes of `tag`. Bytes past the end of the document are zero. */
    ByteVector loadFirstBytes(const char* tag) const
    {
        if (end - tag >= SCAN_WIDTH) {
            return load(tag);
        }
        char bytes[sizeof(ByteVector)] = {};
        std::memcpy(bytes, tag, static_cast<std::size_t>(end - tag));
        return load(bytes);
    }

    [[gnu::noinline]] char* skipTagByBytes(char* p) const
    {
        if (length == 0) {
            return nullptr;
        }
        // A mismatch may be the terminating NUL, past which nothing may be read.
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
            storage.resize(std::max({needed, 2 * capacity, MIN_CAPACITY}));
        } catch (const std::bad_alloc&) {
            return false;
        }
        path = storage.data();
        capacity = storage.size();
        return true;
    }

    /** Storage of the path; all of its size may be written to, and the first `used` bytes are the path. */
    String& storage;
    /** End of the document. */
    const char* const end;
    char* path;
    std::size_t capacity;
    std::size_t used;
    /** Name of the innermost element, in the document or in the tail of the path. */
    char* name;
    std::size_t length;
    bool partialEndTag = false;
    /** First 16 bytes at `name`, of which those past `length` are arbitrary. */
    ByteVector firstBytes;
    /** Offsets of the "/" in the path, so that closing an element does not search a long path. */
    OffsetStack slashes;
};

}

#endif
