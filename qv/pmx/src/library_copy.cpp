#include <qv/pmx/src/library_copy.hpp>

#include <qv/pmx/src/CancellationOff.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

// As in the note of init.cpp.
constexpr std::string_view NOTE_NAME("dalnim", sizeof "dalnim");
constexpr ElfW(Word) NOTE_TYPE = 1;

std::size_t roundUp(std::size_t size, std::size_t alignment)
{
    return (size + alignment - 1) / alignment * alignment;
}

/** Returns true if the notes of a segment, with the given alignment, contain that of this library. */
bool hasNote(std::string_view notes, std::size_t alignment)
{
    alignment = alignment == 8 ? 8 : 4;
    ElfW(Nhdr) header;
    while (notes.size() >= sizeof header) {
        std::memcpy(&header, notes.data(), sizeof header);
        const std::string_view name = notes.substr(sizeof header, header.n_namesz);
        if (name == NOTE_NAME && header.n_type == NOTE_TYPE) {
            return true;
        }
        const std::size_t size = roundUp(sizeof header + std::size_t(header.n_namesz), alignment)
                                 + roundUp(header.n_descsz, alignment);
        notes.remove_prefix(std::min(size, notes.size()));
    }
    return false;
}

/** A file that is open for reading, until the end of the scope. */
class OpenFile
{
public:
    // Without O_NONBLOCK, the open of a FIFO would wait for a writer.
    explicit OpenFile(const char* path) noexcept
        : _descriptor(::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK))
    {
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile()
    {
        if (_descriptor != -1) {
            ::close(_descriptor);
        }
    }

    /** Reads up to `size` bytes at `offset` to `buffer`. Returns them; empty if the file cannot be read. */
    std::string_view read(char* buffer, std::size_t size, std::size_t offset) const noexcept
    {
        const ssize_t count = ::pread(_descriptor, buffer, size, static_cast<off_t>(offset));
        return std::string_view(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

private:
    const int _descriptor;
};

/** A module of the process. */
struct Module
{
    ElfW(Addr) address;
    std::string path;
    const ElfW(Dyn) * dynamic;
    bool hasOtherCopy;
};

std::string_view segment(const dl_phdr_info& info, const ElfW(Phdr) & header)
{
    return std::string_view(reinterpret_cast<const char*>(info.dlpi_addr + header.p_vaddr), header.p_memsz);
}

/** Returns true if the module contains a copy of this library that is not the one with this function. */
bool hasOtherCopy(const dl_phdr_info& info)
{
    const char* const own = NOTE_NAME.data();
    bool isFound = false;
    for (const ElfW(Phdr)* header = info.dlpi_phdr; header != info.dlpi_phdr + info.dlpi_phnum; ++header) {
        const std::string_view memory = segment(info, *header);
        if (header->p_type == PT_LOAD && own >= memory.data() && own < memory.data() + memory.size()) {
            return false;
        }
        isFound = isFound || (header->p_type == PT_NOTE && hasNote(memory, header->p_align));
    }
    return isFound;
}

extern "C" int stopAtOtherCopy(dl_phdr_info* info, size_t, void*)
{
    return hasOtherCopy(*info) ? 1 : 0;
}

/** Appends a module to the vector `modules`. Any result but 0 ends the iteration. */
extern "C" int appendModule(dl_phdr_info* info, size_t, void* modules)
{
    try {
        const ElfW(Dyn)* dynamic = nullptr;
        for (const ElfW(Phdr)* header = info->dlpi_phdr; header != info->dlpi_phdr + info->dlpi_phnum;
             ++header) {
            if (header->p_type == PT_DYNAMIC) {
                dynamic = reinterpret_cast<const ElfW(Dyn)*>(segment(*info, *header).data());
            }
        }
        static_cast<std::vector<Module>*>(modules)->push_back(
            {info->dlpi_addr, info->dlpi_name, dynamic, hasOtherCopy(*info)});
        return 0;
    } catch (const std::bad_alloc&) {
        return 1;
    }
}

/** Returns the strings that a module's dynamic section refers to with the given tag. */
std::vector<std::string_view> strings(const Module& module, ElfW(Sxword) tag)
{
    std::vector<std::string_view> found;
    ElfW(Addr) table = 0;
    for (const ElfW(Dyn)* entry = module.dynamic; entry != nullptr && entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_STRTAB) {
            // The dynamic linker has relocated the address, except where it cannot write.
            table =
                entry->d_un.d_ptr >= module.address ? entry->d_un.d_ptr : module.address + entry->d_un.d_ptr;
        }
    }
    for (const ElfW(Dyn)* entry = module.dynamic; table != 0 && entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == tag) {
            found.emplace_back(reinterpret_cast<const char*>(table + entry->d_un.d_val));
        }
    }
    return found;
}

/** Returns true if `needed`, the name of a dependency, denotes the module. */
bool isNamed(const Module& module, std::string_view needed)
{
    const std::string_view path = module.path;
    const std::vector<std::string_view> sonames = strings(module, DT_SONAME);
    return path == needed || path.substr(path.rfind('/') + 1) == needed
           || std::find(sonames.begin(), sonames.end(), needed) != sonames.end();
}

}

bool fileHasLibraryCopy(const char* path) noexcept
{
    // Contains headers and notes of a library that a usual linker has made.
    constexpr std::size_t BEGIN_SIZE = 4096;
    alignas(ElfW(Ehdr)) char begin[BEGIN_SIZE];
    char notes[BEGIN_SIZE];

    // The calls below are cancellation points, dlopen() is not.
    const CancellationOff off;
    const OpenFile file(path);
    const std::string_view read = file.read(begin, sizeof begin, 0);
    ElfW(Ehdr) header;
    if (read.size() < sizeof header) {
        return false;
    }
    std::memcpy(&header, read.data(), sizeof header);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_phentsize != sizeof(ElfW(Phdr))
        || header.e_phoff > read.size()) {
        return false;
    }
    std::string_view table = read.substr(header.e_phoff, std::size_t(header.e_phnum) * sizeof(ElfW(Phdr)));
    for (ElfW(Phdr) part; table.size() >= sizeof part; table.remove_prefix(sizeof part)) {
        std::memcpy(&part, table.data(), sizeof part);
        if (part.p_type != PT_NOTE) {
            continue;
        }
        const bool isRead = part.p_offset <= read.size() && part.p_filesz <= read.size() - part.p_offset;
        if (hasNote(isRead
                        ? read.substr(part.p_offset, part.p_filesz)
                        : file.read(notes, std::min<std::size_t>(sizeof notes, part.p_filesz), part.p_offset),
                    part.p_align)) {
            return true;
        }
    }
    return false;
}

std::string findLibraryCopy(void* library)
{
    // The usual result, without an allocation.
    if (dl_iterate_phdr(stopAtOtherCopy, nullptr) == 0) {
        return std::string();
    }
    std::vector<Module> modules;
    if (dl_iterate_phdr(appendModule, &modules) != 0) {
        throw std::bad_alloc();
    }
    const link_map* map = nullptr;
    if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) {
        return std::string();
    }
    // Dependencies are appended while the vector is searched. Each module is in it once.
    std::vector<const Module*> used;
    const auto append = [&used](const Module& module) {
        if (std::find(used.begin(), used.end(), &module) == used.end()) {
            used.push_back(&module);
        }
    };
    for (const Module& module : modules) {
        if (module.dynamic == map->l_ld) {
            append(module);
        }
    }
    for (std::size_t i = 0; i < used.size(); ++i) {
        if (used[i]->hasOtherCopy) {
            return used[i]->path;
        }
        for (const std::string_view needed : strings(*used[i], DT_NEEDED)) {
            for (const Module& module : modules) {
                if (isNamed(module, needed)) {
                    append(module);
                }
            }
        }
    }
    return std::string();
}

}
