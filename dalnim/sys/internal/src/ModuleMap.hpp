#ifndef DALNIM_SYS_INTERNAL_SRC_MODULEMAP_HPP
#define DALNIM_SYS_INTERNAL_SRC_MODULEMAP_HPP

#include <dalnim/sys/internal/src/SafeText.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace com::kor::dal::nim::sys::internal {

/**
 * The modules of the process, the program and its libraries, as the kernel has mapped them. Constructed in
 * signal handlers, from /proc/self/maps: this acquires no lock, unlike the lists of the dynamic linker, and
 * contains modules that were loaded in any way. Their headers are read through SafeMemory.
 */
class ModuleMap
{
public:
    /** Size of the memory that the constructor requires, in bytes. */
    static constexpr std::size_t MEMORY_SIZE = 1024UL * 1024;

    /** Reads the modules. `memory` must exist as long as this object; the end of a longer map is ignored. */
    explicit ModuleMap(char* memory) noexcept;
    ModuleMap(const ModuleMap&) = delete;
    ModuleMap& operator=(const ModuleMap&) = delete;

    /** Appends an address as path and offset, or "(no module)". The offset is that of symbols in the file. */
    void appendAddress(SafeText& text, std::uint64_t address) const noexcept;
    /** Returns true if an address is in a module, in memory that can be executed. */
    bool isCode(std::uint64_t address) const noexcept;
    /** Appends a line for each module: its addresses, path and build ID. */
    void appendModules(SafeText& text) const noexcept;

private:
    struct Module
    {
        std::uint64_t begin;
        std::uint64_t end;
        /** Address minus offset of symbols in the file. */
        std::uint64_t bias;
        /** The addresses that can be executed. */
        std::uint64_t codeBegin;
        std::uint64_t codeEnd;
        std::string_view path;
    };
    static constexpr std::size_t MOST_MODULES = 1024;

    void readLine(std::string_view line) noexcept;
    const Module* find(std::uint64_t address) const noexcept;
    static void readHeader(Module& module) noexcept;
    static void appendBuildId(SafeText& text, const Module& module) noexcept;

    Module* const modules;
    std::size_t count = 0;
};

}

#endif
