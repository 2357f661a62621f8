// What a 64-bit ELF file says of itself: segments, dynamic section, symbols, properties.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_BYTES_ELFFILE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_BYTES_ELFFILE_H_

#include <elf.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tntest {

class ElfFile {
public:
    struct Symbol {
        std::string name;
        bool bDefined;
        bool bFunction;
        std::uint64_t nAddress;
    };

    /// Throws std::runtime_error for what is not a whole ELF file of this machine's word size.
    explicit ElfFile(const std::string& path);

    const std::vector<Elf64_Phdr>& Segments() const { return m_segments; }

    /// The first segment of a type.
    std::optional<Elf64_Phdr> Segment(std::uint32_t nType) const;

    /// The value of an entry of the dynamic section.
    std::optional<std::uint64_t> Dynamic(std::int64_t nTag) const;

    /// The dynamic symbols, without their versions.
    std::vector<Symbol> Symbols() const;

    /// A property of the whole file (GNU_PROPERTY_...), 0 when it is not there.
    std::uint32_t Property(std::uint32_t nType) const;

    /// Bytes at an address of the loaded file, fewer where the file ends.
    std::vector<unsigned char> BytesAt(std::uint64_t nAddress, std::size_t nCount) const;

private:
    template <typename Record>
    Record At(std::uint64_t nOffset) const;
    template <typename Record>
    std::vector<Record> Records(std::uint64_t nOffset, std::uint64_t nBytes) const;
    std::optional<Elf64_Shdr> Section(std::uint32_t nType) const;

    std::vector<unsigned char> m_bytes;
    std::vector<Elf64_Phdr> m_segments;
    std::vector<Elf64_Shdr> m_sections;
    std::vector<Elf64_Dyn> m_dynamic;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_BYTES_ELFFILE_H_
