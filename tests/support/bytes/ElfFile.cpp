#include "support/bytes/ElfFile.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "support/bytes/FileBytes.h"

namespace tntest {

template <typename Record>
Record ElfFile::At(std::uint64_t nOffset) const {
    if (nOffset > m_bytes.size() || m_bytes.size() - nOffset < sizeof(Record)) {
        throw std::runtime_error("the ELF file ends early");
    }
    Record record;
    std::memcpy(&record, m_bytes.data() + nOffset, sizeof(Record));
    return record;
}

template <typename Record>
std::vector<Record> ElfFile::Records(std::uint64_t nOffset, std::uint64_t nBytes) const {
    std::vector<Record> records;
    for (std::uint64_t n = 0; n + sizeof(Record) <= nBytes; n += sizeof(Record)) {
        records.push_back(At<Record>(nOffset + n));
    }
    return records;
}

ElfFile::ElfFile(const std::string& path) : m_bytes(ReadBytes(path)) {
    const auto header = At<Elf64_Ehdr>(0);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_phentsize != sizeof(Elf64_Phdr) || header.e_shentsize != sizeof(Elf64_Shdr)) {
        throw std::runtime_error("not an ELF file of 64 bits");
    }
    m_segments = Records<Elf64_Phdr>(header.e_phoff, header.e_phnum * sizeof(Elf64_Phdr));
    m_sections = Records<Elf64_Shdr>(header.e_shoff, header.e_shnum * sizeof(Elf64_Shdr));
    if (const auto dynamic = Segment(PT_DYNAMIC)) {
        m_dynamic = Records<Elf64_Dyn>(dynamic->p_offset, dynamic->p_filesz);
    }
}

std::optional<Elf64_Phdr> ElfFile::Segment(std::uint32_t nType) const {
    const auto found = std::find_if(m_segments.begin(), m_segments.end(),
                                    [nType](const Elf64_Phdr& segment) { return segment.p_type == nType; });
    return found != m_segments.end() ? std::optional<Elf64_Phdr>(*found) : std::nullopt;
}

std::optional<Elf64_Shdr> ElfFile::Section(std::uint32_t nType) const {
    const auto found = std::find_if(m_sections.begin(), m_sections.end(),
                                    [nType](const Elf64_Shdr& section) { return section.sh_type == nType; });
    return found != m_sections.end() ? std::optional<Elf64_Shdr>(*found) : std::nullopt;
}

std::optional<std::uint64_t> ElfFile::Dynamic(std::int64_t nTag) const {
    for (const Elf64_Dyn& entry : m_dynamic) {
        if (entry.d_tag == nTag) {
            return entry.d_un.d_val;
        }
    }
    return std::nullopt;
}

std::vector<ElfFile::Symbol> ElfFile::Symbols() const {
    std::vector<Symbol> symbols;
    const auto table = Section(SHT_DYNSYM);
    if (!table || table->sh_link >= m_sections.size()) {
        return symbols;
    }
    const Elf64_Shdr& names = m_sections[table->sh_link];
    for (const auto& record : Records<Elf64_Sym>(table->sh_offset, table->sh_size)) {
        std::string name;
        for (std::uint64_t n = names.sh_offset + record.st_name; At<char>(n) != '\0'; ++n) {
            name += At<char>(n);
        }
        symbols.push_back(
            {name, record.st_shndx != SHN_UNDEF, ELF64_ST_TYPE(record.st_info) == STT_FUNC, record.st_value});
    }
    return symbols;
}

std::uint32_t ElfFile::Property(std::uint32_t nType) const {
    const auto segment = Segment(PT_GNU_PROPERTY);
    if (!segment) {
        return 0;
    }
    constexpr std::uint64_t kOwner = 4;  // "GNU" with its terminating zero
    const auto note = At<Elf64_Nhdr>(segment->p_offset);
    const std::uint64_t nFirst = segment->p_offset + sizeof(note) + kOwner;
    for (std::uint64_t n = nFirst; n < nFirst + note.n_descsz;) {
        const auto nFound = At<std::uint32_t>(n);
        const auto nSize = At<std::uint32_t>(n + 4);
        if (nFound == nType && nSize == sizeof(std::uint32_t)) {
            return At<std::uint32_t>(n + 8);
        }
        n += 8 + (nSize + 7) / 8 * 8;
    }
    return 0;
}

std::vector<unsigned char> ElfFile::BytesAt(std::uint64_t nAddress, std::size_t nCount) const {
    for (const Elf64_Phdr& segment : m_segments) {
        if (segment.p_type == PT_LOAD && nAddress >= segment.p_vaddr && nAddress - segment.p_vaddr < segment.p_filesz) {
            const std::uint64_t nInside = nAddress - segment.p_vaddr;
            const std::uint64_t nMost = std::min<std::uint64_t>(nCount, segment.p_filesz - nInside);
            return Records<unsigned char>(segment.p_offset + nInside, nMost);
        }
    }
    return {};
}

}  // namespace tntest
