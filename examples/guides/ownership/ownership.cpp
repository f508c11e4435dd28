#include <dalnim/nim.hpp>

#include <iostream>
#include <map>

using namespace com::kor::dal::nim;

namespace {

/** A reference-counted object: only the last reference destroys it. */
class Page : public mem::RefCntObject
{
public:
    explicit Page(const String& page_title) : title(page_title) {}

    const String title;
    String text;

protected:
    ~Page() override
    {
        std::cout << title << " is destroyed\n";
    }
};

typedef mem::RcoRef<Page> PageRef;
typedef mem::ConstRcoRef<Page> ConstPageRef;

/** Can be referenced, but is not counted: the enclosing block owns it. */
class Cover : public mem::RefCntObject
{
public:
    Cover() : RefCntObject(false, false) {}
    ~Cover() override
    {
        std::cout << "the cover is destroyed\n";
    }
};

// Takes its argument by const reference, so that the reference count does not change.
void read(const ConstPageRef& page)
{
    std::cout << page->title << ": " << page->text << ", held by " << page->refCount() << '\n';
}

}

int main()
{
    PageRef page = new Page("first page");
    page->text = "once upon a time";

    std::map<String, ConstPageRef> book;
    book["beginning"] = page;
    read(page);

    page = new Page("last page");
    std::cout << "the book still holds " << book["beginning"]->title << '\n';
    book["beginning"] = page;

    // The count is in the object: a plain pointer may become a reference anywhere.
    Page* const plain = page.get();
    {
        const PageRef another = plain;
        read(another);
    }
    book.clear();
    page.clear();

    try {
        read(page);
    } catch (const sys::system_error& failure) {
        std::cout << failure.error() << ": " << failure.what() << '\n';
    }

    Cover cover;
    const mem::RcoRef<Cover> binding = &cover;
    std::cout << "the cover is held by " << binding->refCount() << '\n';
}
