#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/ModuleMap.hpp>

#include <dalnim/sys/internal/src/SafeMemory.hpp>

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <link.h>

namespace com::kor::dal::nim::sys::internal {

namespace {

typedef ElfW(Ehdr) Header;
typedef ElfW(Phdr) Segment;
typedef ElfW(Nhdr) Note;

/** Reads a hexadecimal number, and removes it. */
std::uint64_t takeNumber(std::string_view& text) noexcept
{
    std::uint64_t number = 0;
    while (!text.empty()) {
        const char digit = text[0];
        const bool isDecimal = digit >= '0' && digit <= '9';
        if (!isDecimal && (digit < 'a' || digit > 'f')) {
            break;
        }
        number = number << 4 | static_cast<std::uint64_t>(isDecimal ? digit - '0' : digit - 'a' + 10);
        text.remove_prefix(1);
    }
    return number;
}

/** Removes and returns the characters up to the next space, and removes the spaces. */
std::string_view takeWord(std::string_view& text) noexcept
{
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(word.size());
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return word;
}

const char* pointer(std::uint64_t address) noexcept
{
    return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(address));
}

bool readElfHeader(Header& header, std::uint64_t address) noexcept
{
    return SafeMemory::readValue(header, pointer(address))
           && std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_phentsize == sizeof(Segment);
}

/** Calls `visit` with each segment of a module until it returns true. */
template <class Visit>
void forEachSegment(std::uint64_t address, Visit visit) noexcept
{
    constexpr unsigned int MOST_SEGMENTS = 64;
    Header header;
    if (!readElfHeader(header, address)) {
        return;
    }
    Segment segment;
    for (unsigned int i = 0; i < header.e_phnum && i < MOST_SEGMENTS; ++i) {
        if (!SafeMemory::readValue(segment, pointer(address + header.e_phoff + i * sizeof segment))
            || visit(segment)) {
            return;
        }
    }
}

/** Appends the build ID if the notes of a segment contain one. */
bool appendBuildIdIn(SafeText& text, std::uint64_t begin, std::uint64_t end) noexcept
{
    constexpr char OWNER[] = "GNU";
    constexpr std::size_t MOST_BYTES = 64;
    constexpr std::uint64_t ALIGNMENT = 4;
    const auto aligned = [](std::uint64_t size) { return (size + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT; };
    Note note;
    while (begin + sizeof note <= end && SafeMemory::readValue(note, pointer(begin))) {
        const std::uint64_t name = begin + sizeof note;
        const std::uint64_t content = name + aligned(note.n_namesz);
        char owner[sizeof OWNER] = {};
        unsigned char bytes[MOST_BYTES];
        if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof OWNER && note.n_descsz <= sizeof bytes
            && SafeMemory::read(owner, pointer(name), sizeof owner)
            && std::memcmp(owner, OWNER, sizeof owner) == 0
            && SafeMemory::read(bytes, pointer(content), note.n_descsz)) {
            for (unsigned int i = 0; i < note.n_descsz; ++i) {
                text << "0123456789abcdef"[bytes[i] >> 4] << "0123456789abcdef"[bytes[i] & 15];
            }
            return true;
        }
        begin = content + aligned(note.n_descsz);
    }
    return false;
}

}

ModuleMap::ModuleMap(char* memory) noexcept : modules(reinterpret_cast<Module*>(memory))
{
    static_assert(MOST_MODULES * sizeof(Module) < MEMORY_SIZE / 2, "there is no memory for the map");
    char* const text = memory + MOST_MODULES * sizeof(Module);
    const std::size_t length =
        SafeMemory::readFile(text, MEMORY_SIZE - MOST_MODULES * sizeof(Module), "/proc/self/maps");
    std::string_view rest(text, length);
    for (std::size_t end; (end = rest.find('\n')) != std::string_view::npos;) {
        readLine(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    for (std::size_t i = 0; i < count; ++i) {
        readHeader(modules[i]);
    }
}

/** Reads a line such as "7f10c000-7f10d000 r-xp 00001000 fe:01 4711   /usr/lib/libc.so.6". */
void ModuleMap::readLine(std::string_view line) noexcept
{
    const std::uint64_t begin = takeNumber(line);
    line.remove_prefix(std::min<std::size_t>(1, line.size()));
    const std::uint64_t end = takeNumber(line);
    takeWord(line);
    const std::string_view access = takeWord(line);
    const std::uint64_t offset = takeNumber(line);
    takeWord(line);
    takeWord(line);
    takeWord(line);
    if (line.empty() || (line[0] != '/' && line != "[vdso]")) {
        return;
    }
    const bool isCode = access.size() > 2 && access[2] == 'x';
    if (count != 0 && modules[count - 1].path == line && offset != 0) {
        Module& module = modules[count - 1];
        module.end = end;
        if (isCode) {
            module.codeBegin = module.codeEnd == 0 ? begin : module.codeBegin;
            module.codeEnd = end;
        }
    } else if (offset == 0 && count < MOST_MODULES) {
        modules[count++] = {begin, end, begin, isCode ? begin : 0, isCode ? end : 0, line};
    }
}

/** Determines the bias: the first segment need not begin at the offset 0, as in a program without PIE. */
void ModuleMap::readHeader(Module& module) noexcept
{
    constexpr std::uint64_t PAGE = 4096;
    forEachSegment(module.begin, [&module](const Segment& segment) {
        if (segment.p_type != PT_LOAD) {
            return false;
        }
        module.bias = module.begin - segment.p_vaddr / PAGE * PAGE;
        return true;
    });
}

const ModuleMap::Module* ModuleMap::find(std::uint64_t address) const noexcept
{
    for (std::size_t i = 0; i < count; ++i) {
        if (modules[i].begin <= address && address < modules[i].end) {
            return modules + i;
        }
    }
    return nullptr;
}

bool ModuleMap::isCode(std::uint64_t address) const noexcept
{
    const Module* const module = find(address);
    return module != nullptr && module->codeBegin <= address && address < module->codeEnd;
}

void ModuleMap::appendAddress(SafeText& text, std::uint64_t address) const noexcept
{
    text.hex(address) << ' ';
    const Module* const module = find(address);
    if (module == nullptr) {
        text << "(no module)";
    } else {
        text << module->path << '+';
        text.hex(address - module->bias);
    }
}

void ModuleMap::appendModules(SafeText& text) const noexcept
{
    for (std::size_t i = 0; i < count; ++i) {
        const Module& module = modules[i];
        if (module.codeEnd == 0) {
            continue;
        }
        text << "    ";
        text.hex(module.begin) << '-';
        text.hex(module.end) << ' ' << module.path;
        appendBuildId(text, module);
        text << '\n';
    }
}

void ModuleMap::appendBuildId(SafeText& text, const Module& module) noexcept
{
    const std::size_t before = text.size();
    text << " build-id ";
    bool isFound = false;
    forEachSegment(module.begin, [&](const Segment& segment) {
        if (segment.p_type == PT_NOTE) {
            const std::uint64_t notes = module.bias + segment.p_vaddr;
            isFound = appendBuildIdIn(text, notes, notes + segment.p_memsz);
        }
        return isFound;
    });
    if (!isFound) {
        text.truncate(before);
    }
}

}
