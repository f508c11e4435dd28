#include "BuildId.hpp"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <vector>

namespace nimlog {

namespace {

/** Maximum size of a segment of notes in bytes; those of libraries have some hundred. */
constexpr std::uint64_t MAX_NOTES_SIZE = 65536;

template <class T>
bool readAt(std::ifstream& file, std::uint64_t offset, T* into, std::size_t size)
{
    file.clear();
    return file.seekg(static_cast<std::streamoff>(offset))
           && file.read(reinterpret_cast<char*>(into), static_cast<std::streamsize>(size));
}

/** Returns the build ID in notes, or an empty string. */
std::string buildIdIn(const std::vector<char>& notes)
{
    const auto aligned = [](std::size_t size) { return (size + 3) / 4 * 4; };
    std::size_t at = 0;
    Elf64_Nhdr note;
    while (at + sizeof note <= notes.size()) {
        std::memcpy(&note, notes.data() + at, sizeof note);
        const std::size_t name = at + sizeof note;
        const std::size_t content = name + aligned(note.n_namesz);
        const std::size_t end = content + aligned(note.n_descsz);
        if (end > notes.size() || end <= at) {
            break;
        }
        if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof "GNU"
            && std::memcmp(notes.data() + name, "GNU", sizeof "GNU") == 0) {
            std::string digits;
            for (std::size_t i = content; i < content + note.n_descsz; ++i) {
                const auto byte = static_cast<unsigned char>(notes[i]);
                digits += "0123456789abcdef"[byte >> 4];
                digits += "0123456789abcdef"[byte & 15];
            }
            return digits;
        }
        at = end;
    }
    return "";
}

}

std::string buildIdOfFile(const std::string& path)
{
    std::ifstream file(path, std::ios_base::binary);
    Elf64_Ehdr header;
    if (!file || !readAt(file, 0, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0
        || header.e_ident[EI_CLASS] != ELFCLASS64) {
        return "";
    }
    for (unsigned int i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        if (!readAt(file, header.e_phoff + std::uint64_t(i) * sizeof segment, &segment, sizeof segment)) {
            return "";
        }
        if (segment.p_type != PT_NOTE) {
            continue;
        }
        std::vector<char> notes(std::min(segment.p_filesz, MAX_NOTES_SIZE));
        if (readAt(file, segment.p_offset, notes.data(), notes.size())) {
            const std::string found = buildIdIn(notes);
            if (!found.empty()) {
                return found;
            }
        }
    }
    // A separate debug file has the notes as a section; its segments refer to bytes that it lacks.
    for (unsigned int i = 0; i < header.e_shnum; ++i) {
        Elf64_Shdr section;
        if (!readAt(file, header.e_shoff + std::uint64_t(i) * sizeof section, &section, sizeof section)) {
            return "";
        }
        if (section.sh_type != SHT_NOTE) {
            continue;
        }
        std::vector<char> notes(std::min(section.sh_size, MAX_NOTES_SIZE));
        if (readAt(file, section.sh_offset, notes.data(), notes.size())) {
            const std::string found = buildIdIn(notes);
            if (!found.empty()) {
                return found;
            }
        }
    }
    return "";
}

}
