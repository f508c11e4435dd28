#include "Results.hpp"

#include <dalnim/mt/MutexHolder.hpp>

#include <ostream>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

typedef nim::mt::MutexHolder<nim::mt::CondSem> Holder;

}

Results::Results(std::ostream& stream) : os(stream)
{
    os << "<results>\n" << std::flush;
}

Results::Place Results::reserve()
{
    const Holder holder(sync.sig.acquire());
    return reserved++;
}

void Results::fill(Place place, const String& element)
{
    const Holder holder(sync.sig.acquire());
    early.emplace(place, element);
    for (auto next = early.find(written); next != early.end(); next = early.find(written)) {
        os << "  " << next->second << '\n';
        early.erase(next);
        ++written;
    }
    os.flush();
    sync.sig.broadcast();
    require();
}

void Results::waitForAll() const
{
    const Holder holder(sync.sig.acquire());
    while (written != reserved) {
        sync.sig.wait();
    }
}

void Results::end()
{
    os << "</results>" << std::endl;
    require();
}

void Results::require() const
{
    if (!os) {
        throw std::ios_base::failure("the results cannot be written");
    }
}

String escaped(const String& text)
{
    String result;
    for (const char c : text) {
        switch (c) {
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '&':
            result += "&amp;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            if (static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\t') {
                result += "&#" + std::to_string(static_cast<unsigned char>(c)) + ";";
            } else {
                result += c;
            }
        }
    }
    return result;
}

}
