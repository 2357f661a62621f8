// Writes the inputs that each fuzz target starts from: SeedWriter DIRECTORY. They are valid, or
// nearly so, and the same ones each time. The formats are written down here, not by the library.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "TnRobotKernel/values.h"
#include "support/bytes/BmpBytes.h"
#include "support/bytes/Bytes.h"
#include "support/bytes/PlainJpeg.h"

using namespace tntest;

namespace {

class SeedWriter {
public:
    explicit SeedWriter(std::filesystem::path directory) : m_directory(std::move(directory)) {
        std::filesystem::remove_all(m_directory);
    }

    void Write(const std::string& strTarget, const std::string& strName, const Bytes& bytes) {
        std::filesystem::create_directories(m_directory / strTarget);
        std::ofstream file(m_directory / strTarget / strName, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        m_bOk = m_bOk && file.flush().good();
        ++m_nFiles;
    }

    bool IsOk() const { return m_bOk; }
    int Files() const { return m_nFiles; }

private:
    std::filesystem::path m_directory;
    int m_nFiles = 0;
    bool m_bOk = true;
};

// Bytes that differ from their neighbours.
Bytes Ramp(std::size_t nCount, unsigned int nStep = 1) {
    Bytes bytes(nCount);
    for (std::size_t i = 0; i < nCount; ++i) {
        bytes[i] = static_cast<unsigned char>(i * nStep);
    }
    return bytes;
}

void WriteBmps(SeedWriter& seeds) {
    BmpFields computed;
    computed.nWidth = 4;
    computed.nHeight = 3;
    BmpFields grey = computed;
    grey.nBitsPerPixel = 8;
    grey.nImageSize = 12;
    BmpFields lower = computed;
    lower.nHeight = 5;
    lower.nImageSize = 36;
    BmpFields deep = computed;
    deep.nBitsPerPixel = 32;
    for (const char* lpszTarget : {"bmp_file", "bmp_memory"}) {
        seeds.Write(lpszTarget, "colour", BmpFile24(4, 3, Ramp(36)));
        seeds.Write(lpszTarget, "odd_width", BmpFile24(3, 3, Ramp(27)));
        seeds.Write(lpszTarget, "computed_size", BmpFile(computed, Ramp(36)));
        seeds.Write(lpszTarget, "grey", BmpFile(grey, Ramp(12)));
        seeds.Write(lpszTarget, "fewer_rows_than_height", BmpFile(lower, Ramp(36)));
        seeds.Write(lpszTarget, "four_bytes", BmpFile(deep, Ramp(48)));
    }
}

void WriteJpegs(SeedWriter& seeds) {
    JpegRecipe recipe;
    const Bytes colour = Ramp(768, 7);
    seeds.Write("jpeg_load", "baseline_444", EncodePlain(recipe, colour));
    recipe.nSampling = 0;
    seeds.Write("jpeg_load", "baseline_420", EncodePlain(recipe, colour));
    recipe.nRestartRows = 1;
    seeds.Write("jpeg_load", "restarts", EncodePlain(recipe, colour));
    recipe.bProgressive = true;
    seeds.Write("jpeg_load", "progressive", EncodePlain(recipe, colour));
    recipe.bArithmetic = true;
    seeds.Write("jpeg_load", "arithmetic_progressive", EncodePlain(recipe, colour));
    recipe.bProgressive = false;
    seeds.Write("jpeg_load", "arithmetic_restarts", EncodePlain(recipe, colour));
    recipe.nRestartRows = 0;
    seeds.Write("jpeg_load", "arithmetic", EncodePlain(recipe, colour));
    recipe = JpegRecipe{};
    recipe.nWidth = 7;
    recipe.nHeight = 9;
    recipe.eInput = JCS_GRAYSCALE;
    recipe.nComponents = 1;
    seeds.Write("jpeg_load", "grey", EncodePlain(recipe, Ramp(63, 5)));
    recipe = JpegRecipe{};
    recipe.nWidth = 8;
    recipe.nHeight = 8;
    recipe.eInput = JCS_CMYK;
    recipe.nComponents = 4;
    seeds.Write("jpeg_load", "cmyk", EncodePlain(recipe, Ramp(256, 3)));
    seeds.Write("jpeg_load", "empty_scans", EmptyProgressiveJpeg(40, 24, 5));
}

// Type, width, height, channels, kind of rows, pixels.
void WriteRecords(SeedWriter& seeds) {
    const Bytes pixels = Ramp(50, 11);
    seeds.Write("saved_jpeg", "colour", FromHex("02 01 07 01 04 03 01") + pixels);
    seeds.Write("saved_jpeg", "reversed", FromHex("01 01 08 01 08 03 01") + pixels);
    seeds.Write("saved_jpeg", "grey", FromHex("07 01 06 01 05 01 00") + pixels);
    seeds.Write("saved_jpeg", "four_bytes", FromHex("09 01 0A 01 09 04 01") + pixels);
    seeds.Write("saved_jpeg", "any_size", FromHex("02 00 FFFFFF7F 00 02000000 03 03") + pixels);
}

void WriteNames(SeedWriter& seeds) {
    for (const char* lpszName : {"a.jpg", "a.BMP", "a.jpeg", "a.png", "bmp", ".JpG", "archive.bmp.jpg", "jpg."}) {
        seeds.Write("image_extension", std::string("name_") + lpszName, FromText(lpszName));
    }
    for (const char* lpszPath : {"/a/b/c.txt", "dir\\file.bin", "c.txt", "/", "a/", "mixed\\a/b", "//", "..\\../x"}) {
        std::string strName = lpszPath;
        for (char& ch : strName) {
            ch = ch == '/' ? 's' : ch == '\\' ? 'b' : ch;
        }
        seeds.Write("path_parts", "path_" + strName, FromText(lpszPath));
    }
    seeds.Write("path_parts", "at_the_limit", FromText(std::string(255, 'd') + "/" + std::string(255, 'n')));
    seeds.Write("path_parts", "beyond_the_limit", FromText(std::string(300, 'd') + "/" + std::string(300, 'n')));
}

void WriteArchives(SeedWriter& seeds) {
    const std::string strClass = "00000000-0000-0000-0000-00000000000a";
    seeds.Write("archive_text", "texts", SavedString("abc") + SavedString("") + SavedString("a longer text"));
    seeds.Write("archive_text", "cut_short", U32(9) + FromText("abc"));
    seeds.Write("archive_text", "zeros_inside", U32(6) + FromHex("61 00 62 00 63 00"));
    seeds.Write("archive_text", "raw_rest", SavedString("x") + U8(1));
    seeds.Write("archive_map_header", "empty", SavedMapHeader({}, {}));
    seeds.Write("archive_map_header", "two_classes", SavedMapHeader({strClass, "b"}, {{1, 0}, {2, 1}, {1, 0}}));
    seeds.Write("archive_map_header", "same_class_twice", SavedMapHeader({"a", "a", ""}, {{0, 2}, {~0ULL, 65535}}));
    seeds.Write("archive_map_header", "cut_short", U16(1) + U32(36) + FromText("0000"));

    const Bytes header = SavedMapHeader({strClass}, {{1, 0}, {2, 0}, {3, 0}});
    const Bytes null = U8(0);
    seeds.Write("object_graph", "one", header + ObjectRecord(true, 0) + SavedString("a") + null + null);
    seeds.Write("object_graph", "shared_and_null",
                header + ObjectRecord(true, 0) + SavedString("a") + ObjectRecord(true, 1) + SavedString("shared") +
                    null + null + null + ObjectRecord(true, 2) + SavedString("b") + ObjectRecord(false, 1) + null);
    seeds.Write("object_graph", "twice_the_same_root",
                header + ObjectRecord(true, 0) + SavedString("a") + null + null + ObjectRecord(false, 0));
    const std::string strStranger = "00000000-0000-0000-0000-00000000000b";
    const std::string strUncounted = "00000000-0000-0000-0000-00000000000c";
    const Bytes three = SavedMapHeader({strClass, strStranger, strUncounted}, {{1, 0}, {2, 1}, {3, 2}, {4, 0}});
    seeds.Write("object_graph", "other_types",
                three + ObjectRecord(true, 1) + ObjectRecord(false, 1) + ObjectRecord(true, 2) +
                    ObjectRecord(false, 2) + ObjectRecord(true, 0) + SavedString("a") + ObjectRecord(true, 1) +
                    ObjectRecord(false, 2));
    seeds.Write("object_graph", "dropped",
                three + ObjectRecord(true, 0) + SavedString("a") + null + null + ObjectRecord(true, 3) +
                    SavedString("b") + null + ObjectRecord(false, 0) + ObjectRecord(false, 3) + ObjectRecord(false, 0));
}

// Every type once, in the order of their numbers.
std::vector<Bytes> ValuesOfAllTypes() {
    return {SavedValue(DATA_TYPE_NONE, Bytes(8)),
            SavedValue(DATA_TYPE_BOOL, U8(1)),
            SavedValue(DATA_TYPE_SHORT, BytesOf<short>(-2)),
            SavedValue(DATA_TYPE_USHORT, U16(3)),
            SavedValue(DATA_TYPE_INT, BytesOf(-4)),
            SavedValue(DATA_TYPE_UINT, U32(5)),
            SavedValue(DATA_TYPE_FLOAT, BytesOf(6.5F)),
            SavedValue(DATA_TYPE_DOUBLE, BytesOf(1e308)),
            SavedValue(DATA_TYPE_LONGLONG, BytesOf(-8LL)),
            SavedValue(DATA_TYPE_ULONGLONG, U64(~0ULL)),
            SavedValue(DATA_TYPE_STRING, FromText("text") + U8(0)),
            SavedValue(DATA_TYPE_BLOCK, Ramp(20)),
            SavedValue(DATA_TYPE_CHAR, FromHex("63 00")),
            SavedValue(DATA_TYPE_BYTE, U8(13))};
}

void WriteValues(SeedWriter& seeds) {
    const std::vector<Bytes> values = ValuesOfAllTypes();
    Bytes group = U8(1) + U32(static_cast<std::uint32_t>(values.size()));
    for (std::size_t i = 0; i < values.size(); ++i) {
        // The first two bytes say what the values hold before they are loaded into.
        const Bytes before = U8(static_cast<unsigned int>(i)) + U8(static_cast<unsigned int>(i / 3)) + U8(i % 2);
        seeds.Write("value_load", "type_" + std::to_string(i), before + values[i]);
        group += SavedString("name" + std::to_string(i)) + values[i];
    }
    seeds.Write("value_load", "two_in_a_row", U8(1) + U8(2) + U8(1) + values[10] + values[4]);
    seeds.Write("group_load", "empty", U8(1) + U32(0));
    seeds.Write("group_load", "all_types", group);
    seeds.Write("group_load", "a_name_twice",
                U8(1) + U32(2) + SavedString("a") + values[4] + SavedString("a") + values[5]);
    seeds.Write("group_load", "empty_name", U8(1) + U32(1) + SavedString("") + values[10]);
    seeds.Write("group_load", "two_groups", group + group);

    // Steps: setter of a type, length of the name, name, and what the setter takes.
    Bytes steps;
    for (unsigned int i = 0; i < 13; ++i) {
        steps += U8(i) + U8(2) + U8('n') + U8('a' + i) + U8(8) + Ramp(8);
    }
    seeds.Write("group_save", "all_types", steps);
    seeds.Write("group_save", "replaced_and_removed",
                FromHex("03 01 61 01000000 06 01 61 0000000000000040 0D 01 61 09 01 62 04 74657874"));
    seeds.Write("group_save", "two_names", FromHex("03 01 61 01000000 0E 01 61 0D 01 61"));
    seeds.Write("group_save", "empty_name", FromHex("03 00 01000000 0D 00 0E 00"));
}

void WriteSequences(SeedWriter& seeds) {
    // Kinds of both files (0 chunks, 1 flat for writing, 2 flat for reading), then operations.
    seeds.Write("memory_file", "chunks",
                FromHex("00 03 00 0A 01020304050607080900 03 FF 02 00 01 02 00 05 AABBCCDDEE 03 20"));
    seeds.Write("memory_file", "past_the_length",
                FromHex("00 03 00 02 0102 02 00 01 14 00 02 0304 02 01 01 FC 00 01 05 03 40"));
    seeds.Write("memory_file", "flat_writing",
                FromHex("04 08 0000000000000000 00 00 00 03 010203 02 00 00 01 05 00 03 00 02 0102"));
    seeds.Write("memory_file", "flat_reading",
                FromHex("08 08 0102030405060708 09 03 01 05 03 03 02 01 FE 01 01 03 02 05"));
    seeds.Write("memory_file", "far_away",
                FromHex("00 03 00 02 0102 02 00 00 FFFFFFFFFFFFFF7F 02 02 00 00000000000000 80 03 10"));
    seeds.Write("data_stream", "write_and_read", FromHex("06 14 AA 05 07 04 00 03 03 03 03 01"));
    seeds.Write("data_stream", "grows_in_a_pass",
                FromHex("06 08 AA 05 07 00 03 06 20 BB 0A 0B 0C 0D 0E 0F 03 03 03 03 03"));
    seeds.Write("data_stream", "cleared_in_a_pass",
                FromHex("06 14 AA 05 07 04 03 00 03 02 06 09 CC 04 05 06 03 03 03 01 03"));
    seeds.Write("data_stream", "refused", FromHex("06 14 AA 05 00 06 05 AA 01 06 05 AA 02 00 03 03"));
}

// A call: its number among the target's operations, the thread, the slot and the plan.
Bytes CallBy(unsigned int nThread, unsigned int nOperation, unsigned int nPlan = 0, unsigned int nSlot = 0) {
    return U8(nOperation) + U8(nThread + 3 * nSlot) + U16(nPlan);
}

void WriteCalls(SeedWriter& seeds) {
    enum {
        kCreate = 0,
        kStart = 2,
        kStop = 4,
        kRelease,
        kLend,
        kSwap,
        kLook,
        kLeavePool,
        kBind,
        kRun,
        kPause,
        kExit,
        kQuery,
        kDrop = 16,
        kSwapBlock,
        kView,
        kSweep,
        kLeaveBlocks,
        kEvent,
        kSignal,
        kClock
    };
    const Bytes plain = U8(1);
    const Bytes withCircle = U8(0);
    const Bytes run = CallBy(0, kCreate) + CallBy(0, kStart);
    seeds.Write("three_callers", "one_run", plain + run + CallBy(0, kLook) + CallBy(0, kStop) + CallBy(0, kRelease));
    seeds.Write("three_callers", "a_shared_task",
                plain + run + CallBy(0, kSwap) + CallBy(1, kLend) + CallBy(1, kStop) + CallBy(1, kStart) +
                    CallBy(2, kLend) + CallBy(2, kRelease) + CallBy(2, kLeavePool, 1));
    seeds.Write("three_callers", "a_job_that_shares_itself",
                plain + CallBy(0, kCreate, 0x0B54) + CallBy(0, kStart) + CallBy(0, kRelease) + CallBy(1, kLend) +
                    CallBy(1, kStart) + CallBy(2, kLend) + CallBy(2, kStop));
    seeds.Write("three_callers", "an_endless_job",
                plain + CallBy(0, kCreate, 0x3000) + CallBy(0, kStart) + CallBy(0, kLeavePool, 1) +
                    CallBy(1, kLeavePool, 1) + CallBy(2, kLeavePool) + CallBy(2, kLeavePool, 1));
    seeds.Write("three_callers", "no_runner", plain + CallBy(0, kCreate, 15) + CallBy(0, kStart) + CallBy(0, kStop));
    seeds.Write("three_callers", "a_thread",
                plain + CallBy(0, kRun) + CallBy(0, kBind, 0x0D) + CallBy(0, kRun) + CallBy(1, kPause) +
                    CallBy(1, kRun) + CallBy(2, kPause) + CallBy(2, kExit) + CallBy(1, kExit, 1));
    seeds.Write("three_callers", "blocks",
                plain + CallBy(0, kQuery, 8) + CallBy(0, kSwapBlock) + CallBy(1, kView, 1) + CallBy(1, kSweep) +
                    CallBy(2, kQuery, 10) + CallBy(2, kDrop) + CallBy(2, kLeaveBlocks) + CallBy(0, kDrop));
    seeds.Write("three_callers", "a_circle",
                withCircle + CallBy(0, kQuery, 15) + CallBy(1, kQuery, 15) + CallBy(2, kQuery, 17) +
                    CallBy(0, kQuery, 15, 1) + CallBy(1, kDrop) + CallBy(2, kLeaveBlocks, 1) + CallBy(1, kSwapBlock));
    seeds.Write("three_callers", "waits",
                plain + CallBy(0, kEvent, 5) + CallBy(1, kEvent) + CallBy(0, kSignal, 7) + CallBy(1, kSignal, 1) +
                    CallBy(2, kClock, 5) + CallBy(2, kClock, 3) + CallBy(1, kClock, 2) + CallBy(0, kClock, 4));
}

void WriteTexts(SeedWriter& seeds) {
    seeds.Write("string_utils", "hex", FromText(",0A 1b  f 00"));
    seeds.Write("string_utils", "three_digits", FromText(" 12 123 4"));
    seeds.Write("string_utils", "parts", FromText(";;a;;bc;d"));
    seeds.Write("string_utils", "long_part", FromText(";" + std::string(300, 'x') + ";y"));
    seeds.Write("string_utils", "all_bytes", U8(' ') + Ramp(256));
    seeds.Write("base64", "padded", FromText("YQ=="));
    seeds.Write("base64", "whole_groups", FromText("VGhlIHF1aWNrIGJyb3duIGZveCBqdW1wcyBvdmVyIHRoZSBk"));
    seeds.Write("base64", "strangers", FromText("a-_b\n\r =c"));
    seeds.Write("base64", "cut_short", FromText("YWJjZ"));
    seeds.Write("base64", "all_bytes", Ramp(256));
    seeds.Write("rectangles", "small", U8(0) + FromHex("0000 0A00 0A0A 000A 000A000A 050F000A 050F646E 0B14000A"));
    seeds.Write("rectangles", "large",
                U8(1) + Ramp(32, 9) + FromHex("00000080 FFFFFF7F 00000080 FFFFFF7F") + Ramp(48, 77));
    seeds.Write("rectangles", "none", U8(0) + Ramp(8));
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    if (nArguments != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", ppszArguments[0]);
        return 2;
    }
    SeedWriter seeds(ppszArguments[1]);
    WriteBmps(seeds);
    WriteJpegs(seeds);
    WriteRecords(seeds);
    WriteNames(seeds);
    WriteArchives(seeds);
    WriteValues(seeds);
    WriteSequences(seeds);
    WriteCalls(seeds);
    WriteTexts(seeds);
    std::printf("%d seeds written\n", seeds.Files());
    return seeds.IsOk() ? 0 : 1;
}
