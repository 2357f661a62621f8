// What tnrobot-inspect says about pictures, and how it converts them.

#include <TnRobotKernel/make.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/bytes/BmpBytes.h"
#include "support/bytes/PlainJpeg.h"
#include "tools/InspectProgram.h"

using namespace tntest;

namespace {

class InspectPictures : public InspectProgram {};

// A row of 5 pixels is 15 bytes: packed and padded rows differ.
constexpr int kWidth = 5;
constexpr int kHeight = 3;
constexpr std::size_t kRow = 15;

// Top row first, smooth enough for JPEG.
Bytes Pixels(int nChange = 0) {
    Bytes pixels;
    for (int i = 0; i < kWidth * kHeight * 3; ++i) {
        pixels.push_back(static_cast<unsigned char>(100 + i));
    }
    pixels[7] = static_cast<unsigned char>(pixels[7] + nChange);
    return pixels;
}

Bytes Bmp(int nChange = 0) {
    return BmpFile24(kWidth, kHeight, FlipRows(Pixels(nChange), kRow));
}

Bytes Jpeg() {
    JpegRecipe recipe;
    recipe.nWidth = kWidth;
    recipe.nHeight = kHeight;
    recipe.nQuality = 95;
    return EncodePlain(recipe, Pixels());
}

int LargestDifference(const Bytes& a, const Bytes& b) {
    int nLargest = a.size() == b.size() ? 0 : 256;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        nLargest = std::max(nLargest, std::abs(a[i] - b[i]));
    }
    return nLargest;
}

}  // namespace

TEST_F(InspectPictures, InfoOfABmp) {
    Write("p.bmp", Bmp());
    ExpectOutput({"info", "p.bmp"}, 0,
                 "p.bmp: BMP picture, 99 bytes\n"
                 "  size            5 x 3 pixels\n"
                 "  bits per pixel  24\n"
                 "  colour table    0 entries\n"
                 "  pixels at       54\n"
                 "  condition       good\n");
}

TEST_F(InspectPictures, DumpOfABmp) {
    Write("a name without ending", Bmp());
    ExpectOutput({"dump", "a name without ending"}, 0,
                 "a name without ending: BMP picture, 99 bytes, good\n"
                 "  file size       99\n"
                 "  data offset     54\n"
                 "  width           5\n"
                 "  height          3\n"
                 "  bits per pixel  24\n"
                 "  compression     0\n"
                 "  image size      45\n"
                 "  colours used    0\n");
    EXPECT_NE(Run({"dump", "--json", "a name without ending"}).output.find("\"bitsPerPixel\": 24,"), std::string::npos);
}

TEST_F(InspectPictures, InfoOfAJpeg) {
    Write("p", Jpeg());
    ExpectOutput({"info", "p"}, 0,
                 "p: JPEG picture, " + std::to_string(Jpeg().size()) +
                     " bytes\n"
                     "  size            5 x 3 pixels\n"
                     "  components      3 of 8 bits\n"
                     "  coding          baseline\n"
                     "  segments        11\n"
                     "  condition       good\n");
}

TEST_F(InspectPictures, DumpOfAJpegShowsItsSegments) {
    Write("p.jpg", Jpeg());
    const ChildResult result = Run({"dump", "p.jpg"});
    EXPECT_EQ(result.nExitCode, 0);
    EXPECT_NE(result.output.find("  0         2         SOI\n  2         18        APP0\n"), std::string::npos);
    EXPECT_NE(result.output.find("  " + std::to_string(Jpeg().size() - 2) + "       2         EOI\n"),
              std::string::npos)
        << result.output;
    EXPECT_NE(Run({"dump", "--json", "p.jpg"}).output.find("\"coding\": \"baseline\","), std::string::npos);
}

TEST_F(InspectPictures, EightBitBmpIsGoodButNotLoaded) {
    BmpFields fields;
    fields.nWidth = 4;
    fields.nHeight = 2;
    fields.nBitsPerPixel = 8;
    fields.nDataOffset = 54 + 1024;
    fields.nImageSize = 8;
    fields.nColours = 256;
    Write("grey.bmp", BmpFile(fields, Bytes(8, 1)));
    ExpectOutput({"verify", "grey.bmp"}, 0,
                 "grey.bmp: good (BMP picture, 1086 bytes)\n"
                 "  note at 0: the library writes files of 8 bits per pixel, but loads only those of 24\n");
    EXPECT_EQ(Run({"convert", "grey.bmp", "grey.jpg"}).nExitCode, 2);
    EXPECT_FALSE(std::filesystem::exists(m_directory / "grey.jpg"));
    ExpectOutput({"diff", "grey.bmp", "grey.bmp"}, 0, "equal\n");
}

TEST_F(InspectPictures, DamagedBmpIsSaid) {
    BmpFields padded;
    padded.nWidth = kWidth;
    padded.nHeight = kHeight;
    padded.nImageSize = 48;
    BmpFields large = padded;
    large.nHeight = 2147483647;
    BmpFields turned = padded;
    turned.nHeight = -3;
    turned.nImageSize = 45;
    Bytes cut = Bmp();
    cut.pop_back();
    const struct {
        Bytes bytes;
        std::string problem;
    } cases[] = {
        {cut, "2: the header says 99 bytes, the file has 98"},
        {BmpFile(padded, Bytes(48, 0)), "34: rows are padded to 16 bytes: the library reads unpadded rows"},
        {BmpFile(large, Bytes(48, 0)), "10: 2147483647 rows of 15 bytes do not fit behind offset 54"},
        {BmpFile(turned, Bytes(45, 0)), "18: no pixels: 5 x -3 of 24 bits"},
        {FromText("BM"), "0: shorter than the headers of a BMP file, 54 bytes"},
    };
    for (const auto& damaged : cases) {
        Write("p.bmp", damaged.bytes);
        for (const char* lpszCommand : {"info", "dump", "verify"}) {
            const ChildResult result = Run({lpszCommand, "p.bmp"});
            EXPECT_EQ(result.nExitCode, 1) << damaged.problem;
            EXPECT_NE(result.output.find("  damage at " + damaged.problem + "\n"), std::string::npos) << result.output;
        }
        EXPECT_EQ(Run({"convert", "p.bmp", "p.jpg"}).nExitCode, 1);
        EXPECT_FALSE(std::filesystem::exists(m_directory / "p.jpg"));
    }
}

// A file that is read as a picture although its pixels begin where its fields stand shows its fields.
TEST_F(InspectPictures, PixelsWithinTheHeadersAreDamage) {
    BmpFields fields;
    fields.nWidth = 4;
    fields.nHeight = 4;
    fields.nImageSize = 48;
    const struct {
        std::uint32_t nDataOffset;
        std::uint32_t nInfoSize;
        std::uint32_t nColours;
        const char* lpszProblem;  // null for a good file
    } cases[] = {
        {54, 40, 0, nullptr},
        {53, 40, 0, "the pixels begin at 53, before the end of headers and colour table at 54"},
        {0, 40, 0, "the pixels begin at 0, before the end of headers and colour table at 54"},
        {54, 124, 0, "the pixels begin at 54, before the end of headers and colour table at 138"},
        {138, 124, 0, nullptr},
        {54, 40, 2, "the pixels begin at 54, before the end of headers and colour table at 62"},
        {62, 40, 2, nullptr},
        {54, 0xFFFFFFFF, 0xFFFFFFFF,
         "the pixels begin at 54, before the end of headers and colour table at 21474836489"},
    };
    for (const auto& one : cases) {
        fields.nDataOffset = one.nDataOffset;
        fields.nInfoSize = one.nInfoSize;
        fields.nColours = one.nColours;
        const Bytes rest(std::max<std::uint32_t>(one.nDataOffset, 54) - 54 + 48, 9);
        fields.nFileSize = static_cast<std::uint32_t>(54 + rest.size());
        Write("p.bmp", BmpHeader(fields) + rest);
        const ChildResult result = Run({"verify", "p.bmp"});
        EXPECT_EQ(result.nExitCode, one.lpszProblem == nullptr ? 0 : 1) << result.output;
        if (one.lpszProblem != nullptr) {
            EXPECT_NE(result.output.find("  damage at 10: " + std::string(one.lpszProblem) + "\n"), std::string::npos)
                << result.output;
        }
    }
}

TEST_F(InspectPictures, PixelsWithinAColourTableOfUnsaidSizeAreDamage) {
    BmpFields fields;
    fields.nWidth = 4;
    fields.nHeight = 2;
    fields.nBitsPerPixel = 8;
    fields.nImageSize = 8;
    Write("p.bmp", BmpFile(fields, Bytes(8, 1)));
    const ChildResult result = Run({"verify", "p.bmp"});
    EXPECT_EQ(result.nExitCode, 1);
    EXPECT_NE(result.output.find("before the end of headers and colour table at 1078\n"), std::string::npos)
        << result.output;
    fields.nDataOffset = 54 + 1024;
    Write("p.bmp", BmpFile(fields, Bytes(8, 1)));
    EXPECT_EQ(Run({"verify", "p.bmp"}).nExitCode, 0);
}

// The image size need not say that rows are padded.
TEST_F(InspectPictures, PaddedRowsAreDamageWhateverTheImageSizeSays) {
    const struct {
        int nWidth;
        int nHeight;
        std::uint32_t nImageSize;
        std::size_t nBytes;
        bool bPadded;
    } cases[] = {
        {5, 3, 0, 48, true},
        {5, 3, 0, 50, true},
        {5, 3, 45, 48, true},
        {27, 27, 2268, 2268, true},
        {1, 3, 12, 12, true},
        {5, 3, 0, 45, false},
        {5, 3, 45, 45, false},
        {5, 3, 45, 47, false},
        {4, 3, 0, 36, false},
        {127, 127, 0, 48768, true},
        {127, 127, 48387, 48387, false},
    };
    for (const auto& one : cases) {
        BmpFields fields;
        fields.nWidth = one.nWidth;
        fields.nHeight = one.nHeight;
        fields.nImageSize = one.nImageSize;
        Write("p.bmp", BmpFile(fields, Bytes(one.nBytes, 3)));
        const ChildResult result = Run({"verify", "p.bmp"});
        EXPECT_EQ(result.nExitCode, one.bPadded ? 1 : 0) << one.nWidth << " " << one.nBytes << result.output;
        EXPECT_EQ(result.output.find("  damage at 34: rows are padded to ") != std::string::npos, one.bPadded)
            << result.output;
    }
}

// The inspector reads BMP files itself; what it calls good the library loads with the same pixels.
TEST_F(InspectPictures, GoodBmpFilesAreThoseThatTheLibraryLoads) {
    const TnRobotPtr<ITnRobotMemoryBlockPool> blocks = tn::MakeMemoryBlockPool();
    const TnRobotPtr<ITnRobotSurfacePool> surfaces = tn::MakeSurfacePool(blocks.get());
    for (int nWidth = 1; nWidth <= 9; ++nWidth) {
        const std::size_t nRow = std::size_t{3} * static_cast<std::size_t>(nWidth);
        Bytes pixels(nRow * 5);
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            pixels[i] = static_cast<unsigned char>(7 * i);
        }
        Write("p.bmp", BmpFile24(nWidth, 5, FlipRows(pixels, nRow)));
        EXPECT_EQ(Run({"verify", "p.bmp"}).nExitCode, 0) << nWidth;
        EXPECT_EQ(Run({"convert", "-f", "p.bmp", "q.bmp"}).nExitCode, 0) << nWidth;
        for (const char* lpszFile : {"p.bmp", "q.bmp"}) {
            const auto surface = tn::LoadImage((m_directory / lpszFile).c_str(), surfaces.get());
            ASSERT_TRUE(surface) << nWidth;
            ITnRobotSurface::STnLockSurface lock{};
            surface->LockSurface(lock);
            EXPECT_EQ(Bytes(lock.pData, lock.pData + pixels.size()), pixels) << lpszFile << " " << nWidth;
            surface->UnLockSurface();
        }
    }
    Bytes cut = Bmp();
    cut.pop_back();
    Bytes turned = Bmp();
    turned[25] = 0xFF;
    Bytes wide = Bmp();
    wide[20] = 1;
    for (const Bytes& bytes : {cut, turned, wide}) {
        Write("p.bmp", bytes);
        EXPECT_EQ(Run({"verify", "p.bmp"}).nExitCode, 1);
        EXPECT_FALSE(tn::LoadImage((m_directory / "p.bmp").c_str(), surfaces.get()));
    }
}

// Neither for the verdict nor for the pixels.
TEST_F(InspectPictures, ReadingNeedsNoTemporaryDirectory) {
    Write("a.bmp", Bmp());
    Write("b", Bmp(9));
    Write("c.jpg", Jpeg());
    const ChildResult result = RunChild({TNROBOT_INSPECT,
                                         {"verify", "a.bmp", "b", "c.jpg"},
                                         {{"TMPDIR", "/nowhere"}},
                                         m_directory.Path().string(),
                                         true});
    EXPECT_EQ(result.output,
              "a.bmp: good (BMP picture, 99 bytes)\nb: good (BMP picture, 99 bytes)\nc.jpg: good (JPEG "
              "picture, " +
                  std::to_string(Jpeg().size()) + " bytes)\n");
    EXPECT_EQ(RunChild({TNROBOT_INSPECT, {"diff", "a.bmp", "b"}, {{"TMPDIR", "/nowhere"}}, m_directory.Path().string()})
                  .output,
              "~ 1 of 15 pixels differ, by at most 9 of 255\n");
}

// Such files are as they should be; it is the library that has no use for them.
TEST_F(InspectPictures, JpegFilesThatTheLibraryDoesNotSupportAreGood) {
    JpegRecipe recipe;
    recipe.nComponents = 4;
    recipe.eInput = JCS_CMYK;
    const Bytes pixels(std::size_t{16} * 16 * 4, 80);
    recipe.eStored = JCS_CMYK;
    const Bytes cmyk = EncodePlain(recipe, pixels);
    recipe.eStored = JCS_YCCK;
    const Bytes ycck = EncodePlain(recipe, pixels);
    recipe.nComponents = 2;
    recipe.eInput = JCS_UNKNOWN;
    recipe.eStored = JCS_UNKNOWN;
    const Bytes two = EncodePlain(recipe, pixels);
    // Frame headers of Jpeg() with other contents.
    const auto frame = [](std::size_t nAt, unsigned char nValue) {
        Bytes jpeg = Jpeg();
        const Bytes marker = FromHex("FFC0");
        const auto it = std::search(jpeg.begin(), jpeg.end(), marker.begin(), marker.end());
        *(it + static_cast<std::ptrdiff_t>(nAt)) = nValue;
        return jpeg;
    };
    Bytes lines = frame(6, 0);
    const Bytes end = FromHex("FFDC00040003 FFD9");
    lines.resize(lines.size() - 2);
    lines += end;
    const struct {
        Bytes bytes;
        std::string what;
    } cases[] = {
        {cmyk, "CMYK and YCCK pictures are"},      {ycck, "CMYK and YCCK pictures are"},
        {two, "pictures of 2 components are"},     {frame(4, 12), "12 bits per sample are"},
        {frame(1, 0xC3), "lossless pictures are"}, {lines, "a height behind the picture's lines is"},
    };
    for (const auto& one : cases) {
        Write("p.jpg", one.bytes);
        ExpectOutput({"verify", "p.jpg"}, 0,
                     "p.jpg: good (JPEG picture, " + std::to_string(one.bytes.size()) + " bytes)\n  note at 0: " +
                         one.what + " not supported by the library: only the segments were checked\n");
        ExpectOutput({"diff", "p.jpg", "p.jpg"}, 0, "equal\n");
        EXPECT_EQ(RunForErrors({"convert", "p.jpg", "p.bmp"}).output,
                  "tnrobot-inspect: p.jpg: " + one.what +
                      " not supported by the library: only the segments were checked\n"
                      "tnrobot-inspect: p.jpg: is no picture that the library loads\n");
        EXPECT_EQ(Run({"convert", "p.jpg", "p.bmp"}).nExitCode, 2);
        EXPECT_FALSE(std::filesystem::exists(m_directory / "p.bmp"));
        for (std::size_t nSize = 2; nSize < one.bytes.size(); nSize += 13) {
            Write("p.jpg", Bytes(one.bytes.begin(), one.bytes.begin() + static_cast<std::ptrdiff_t>(nSize)));
            EXPECT_EQ(Run({"verify", "p.jpg"}).nExitCode, 1) << one.what << " " << nSize;
        }
    }
    // What no encoder writes stays damage, whatever libjpeg calls it.
    for (const Bytes& damaged : {frame(4, 77), frame(6, 0), frame(9, 4)}) {
        Write("p.jpg", damaged);
        EXPECT_EQ(Run({"verify", "p.jpg"}).nExitCode, 1);
    }
}

TEST_F(InspectPictures, MessagesOfLibjpegNameTheFile) {
    const int nTooWide = 65504;
    Write("p.bmp", BmpFile24(nTooWide, 1, Bytes(std::size_t{3} * nTooWide, 1)));
    const ChildResult encoded = RunForErrors({"convert", "p.bmp", "p.jpg"});
    EXPECT_EQ(encoded.output,
              "tnrobot-inspect: p.jpg: cannot be written: Maximum supported image dimension is 65500 pixels\n");
    EXPECT_EQ(encoded.nExitCode, 2);
    Bytes jpeg = Jpeg();
    jpeg[jpeg.size() - 8] = 0xFF;
    jpeg[jpeg.size() - 7] = 0xD3;
    Write("q.jpg", jpeg);
    const ChildResult decoded = RunForErrors({"convert", "q.jpg", "q.bmp"});
    EXPECT_EQ(decoded.output.rfind("tnrobot-inspect: q.jpg: the decoder says: ", 0), 0U) << decoded.output;
    EXPECT_EQ(std::count(decoded.output.begin(), decoded.output.end(), '\n'), 1) << decoded.output;
    EXPECT_EQ(decoded.nExitCode, 1);
}

// The decoder fills up what is missing; the inspector does not take that for a picture.
TEST_F(InspectPictures, EveryCutJpegIsDamaged) {
    const Bytes whole = Jpeg();
    for (std::size_t nSize = 2; nSize < whole.size(); nSize += 7) {
        Write("p.jpg", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nSize)));
        EXPECT_EQ(Run({"verify", "p.jpg"}).nExitCode, 1) << nSize;
    }
}

TEST_F(InspectPictures, BytesBehindAJpegAreNoted) {
    Write("p.jpg", Jpeg() + FromText("xyz"));
    const ChildResult result = Run({"verify", "p.jpg"});
    EXPECT_EQ(result.nExitCode, 0);
    EXPECT_NE(result.output.find(": 3 bytes behind the end of the image\n"), std::string::npos);
}

TEST_F(InspectPictures, APictureThatClaimsTooMuchMemoryIsNotDecoded) {
    Bytes jpeg = Jpeg();
    PatchSize(jpeg, 65000, 65000);
    Write("p.jpg", jpeg);
    const ChildResult result = RunForErrors({"verify", "p.jpg"});
    EXPECT_EQ(result.nExitCode, 2);
    EXPECT_EQ(result.output,
              "tnrobot-inspect: p.jpg: a picture of 65000 x 65000 pixels needs more than --max-memory, 1024 MiB\n");
}

TEST_F(InspectPictures, DiffComparesPixelsOfBothKinds) {
    Write("a.bmp", Bmp());
    Write("b.bmp", Bmp(9));
    Write("c.jpg", Jpeg());
    ExpectOutput({"diff", "a.bmp", "b.bmp"}, 1, "~ 1 of 15 pixels differ, by at most 9 of 255\n");
    ExpectOutput({"diff", "a.bmp", "a.bmp"}, 0, "equal\n");
    const Bytes decoded = DecodePlain(Jpeg(), JCS_EXT_BGR, 3).pixels;
    const std::string most = std::to_string(LargestDifference(decoded, Pixels()));
    const ChildResult result = Run({"diff", "a.bmp", "c.jpg"});
    EXPECT_NE(result.output.find("pixels differ, by at most " + most + " of 255\n"), std::string::npos)
        << result.output;
    Write("d.bmp", BmpFile24(4, 1, Bytes(12, 0)));
    ExpectOutput({"diff", "a.bmp", "d.bmp"}, 1, "~ size: 5 x 3 pixels -> 4 x 1 pixels\n");
}

TEST_F(InspectPictures, ConvertsABmpWithoutShiftingItsRows) {
    Write("p.bmp", Bmp());
    ExpectOutput({"convert", "p.bmp", "p.jpg"}, 0, "");
    const JpegPicture picture = DecodePlain(ReadBytes(m_directory / "p.jpg"), JCS_EXT_BGR, 3);
    EXPECT_EQ(picture.nWidth, kWidth);
    EXPECT_LE(LargestDifference(picture.pixels, Pixels()), 8);
}

TEST_F(InspectPictures, ConvertsAJpegIntoExactlyItsPixels) {
    Write("p.jpg", Jpeg());
    ExpectOutput({"convert", "p.jpg", "p.BMP"}, 0, "");
    const Bytes bmp = ReadBytes(m_directory / "p.BMP");
    const Bytes expected = FlipRows(DecodePlain(Jpeg(), JCS_EXT_BGR, 3).pixels, kRow);
    ASSERT_GE(bmp.size(), expected.size());
    EXPECT_TRUE(std::equal(expected.rbegin(), expected.rend(), bmp.rbegin()));
    ExpectOutput({"diff", "p.jpg", "p.BMP"}, 0, "equal\n");
}

TEST_F(InspectPictures, ConvertReplacesOnlyWhenForced) {
    Write("p.bmp", Bmp());
    Write("p.jpg", FromText("mine"));
    EXPECT_EQ(Run({"convert", "p.bmp", "p.jpg"}).nExitCode, 2);
    EXPECT_EQ(ReadBytes(m_directory / "p.jpg"), FromText("mine"));
    EXPECT_EQ(Run({"convert", "--force", "p.bmp", "p.jpg"}).nExitCode, 0);
    EXPECT_NE(ReadBytes(m_directory / "p.jpg"), FromText("mine"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_directory.Path()), {}), 2) << "nothing else is left";
}

TEST_F(InspectPictures, ConvertMakesAFileLikeAnyOther) {
    Write("p.bmp", Bmp());
    Write("other", {});
    EXPECT_EQ(Run({"convert", "p.bmp", "p.jpg"}).nExitCode, 0);
    EXPECT_EQ(std::filesystem::status(m_directory / "p.jpg").permissions(),
              std::filesystem::status(m_directory / "other").permissions());
}

TEST_F(InspectPictures, ConvertRefusesWhatItCannotDo) {
    Write("p.bmp", Bmp());
    Write("g.tnr", SavedGroup({}));
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } cases[] = {
        {{"convert", "p.bmp", "p.png"}, "p.png: must end in .jpg or .bmp, which says what it is to be"},
        {{"convert", "p.bmp", ".jpg"}, ".jpg: must end in .jpg or .bmp, which says what it is to be"},
        {{"convert", "g.tnr", "p.jpg"}, "g.tnr: is no picture that the library loads"},
        {{"convert", "none.bmp", "p.jpg"}, "none.bmp: No such file or directory"},
        {{"convert", "p.bmp", "nowhere/p.jpg"}, "nowhere/p.jpg: cannot be written: No such file or directory"},
    };
    for (const auto& refused : cases) {
        const ChildResult result = RunForErrors(refused.arguments);
        EXPECT_EQ(result.output, "tnrobot-inspect: " + refused.error + "\n");
        EXPECT_EQ(result.nExitCode, 2);
    }
}
