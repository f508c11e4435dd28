#ifndef DALNIM_XML_SRC_ELEMENTPATH_HPP
#define DALNIM_XML_SRC_ELEMENTPATH_HPP

#include <dalnim/String.hpp>

#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

namespace com::kor::dal::nim::xml {

/** A stack that takes memory only where a document nests deeper than most do. */
class OffsetStack
{
public:
    bool isEmpty() const
    {
        return size == 0;
    }
    std::size_t last() const
    {
        return size <= NEAR ? near[size - 1] : far.back();
    }
    /** May throw `std::bad_alloc`. */
    void push(std::size_t offset)
    {
        if (size < NEAR) {
            near[size] = offset;
        } else {
            far.push_back(offset);
        }
        ++size;
    }
    void pop()
    {
        if (size > NEAR) {
            far.pop_back();
        }
        --size;
    }

private:
    static constexpr std::size_t NEAR = 32;

    std::size_t size = 0;
    std::size_t near[NEAR];
    std::vector<std::size_t> far;
};

/** The open elements of a parse: the text of their names, and the innermost, which events are told for. */
class ElementPath
{
public:
    /** @param text the names joined by "/"; the first element replaces what it holds */
    explicit ElementPath(String& text) : path(text), name(path.data()), length(0) {}

    /**
     * The tag stands behind its "<".
     * @return false without memory
     */
    bool open(char* tag, std::size_t tagLength, bool isRoot)
    {
        try {
            if (isRoot) {
                path.assign(tag, tagLength);
            } else {
                const std::size_t slash = path.size();
                slashes.push(slash);
                // With the byte before it, which is made the "/".
                path.append(tag - 1, tagLength + 1);
                path[slash] = '/';
            }
        } catch (const std::bad_alloc&) {
            return false;
        }
        take(tag, tagLength);
        return true;
    }

    /** The position behind the innermost element's tag where it stands at `p`, else null. */
    char* skipTag(char* p) const
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

    /** An end tag closes what the path ends with, wherever its "/" stand: "</b>" closes "<ab>". */
    bool closeBy(char* tag, std::size_t tagLength)
    {
        if (tagLength > path.size()
            || std::memcmp(path.data() + (path.size() - tagLength), tag, tagLength) != 0) {
            return false;
        }
        take(tag, tagLength);
        return true;
    }

    /** Cuts the tag off the path, with the "/" before it; the innermost element is the one then last. */
    void close()
    {
        std::size_t rest = path.size() - length;
        rest -= rest != 0 ? 1 : 0;
        path.erase(rest);
        while (!slashes.isEmpty() && slashes.last() >= rest) {
            slashes.pop();
        }
        const std::size_t parent = slashes.isEmpty() ? 0 : slashes.last() + 1;
        take(path.data() + parent, rest - parent);
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
        return path.data();
    }

private:
    void take(char* tag, std::size_t tagLength)
    {
        name = tag;
        length = tagLength;
    }

    String& path;
    /** In the document, or the tail of the path. */
    char* name;
    std::size_t length;
    /** Where the "/" stand in the path, so that a long path is not searched for each element. */
    OffsetStack slashes;
};

}

#endif
