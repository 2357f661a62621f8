#include "Json.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "JsonWriter.h"
#include "Report.h"
#include "Values.h"

namespace {

// What is counted in a file fits 63 bits.
template <typename Counted>
std::int64_t Number(Counted nCounted) {
    return static_cast<std::int64_t>(nCounted);
}

void WriteText(JsonWriter& writer, std::string_view name, const ValueText& text) {
    const std::string_view source = text.Source();
    if (text.IsHex()) {
        writer.Hex(name, {reinterpret_cast<const unsigned char*>(source.data()), source.size()});
    } else {
        writer.Text(name, source);
    }
}

void WriteValue(JsonWriter& writer, const Entry& entry) {
    const ValueText text(entry);
    writer.Text("type", TypeName(entry.nType));
    writer.Scalar("offset", Number(entry.nOffset));
    writer.Scalar("bytes", Number(entry.bytes.nSize));
    if (IsTextInJson(entry)) {
        WriteText(writer, "value", text);
    } else {
        writer.Scalar("value", ScalarJson(entry));
    }
    WriteText(writer, "text", text);
}

void Write(JsonWriter& writer, const Entry& entry) {
    writer.BeginObject();
    writer.Text("name", entry.name);
    WriteValue(writer, entry);
    writer.EndObject();
}

void Write(JsonWriter& writer, const ValueFile& file) {
    writer.Key("value");
    writer.BeginObject();
    WriteValue(writer, file.value);
    writer.EndObject();
}

void Write(JsonWriter& writer, const GroupFile& groups) {
    writer.Key("groups");
    writer.BeginArray();
    ForEachGroup(groups.file, [&](const Group& group) {
        writer.BeginObject();
        writer.Scalar("offset", Number(group.nOffset));
        writer.Scalar("bytes", Number(group.nSize));
        writer.Scalar("declared", Number(group.nDeclared));
        writer.Key("entries");
        writer.BeginArray();
        ForEachEntry(groups.file, group, [&writer](const Entry& entry) { Write(writer, entry); });
        writer.EndArray();
        writer.EndObject();
    });
    writer.EndArray();
}

void Write(JsonWriter& writer, const ObjectTables& tables) {
    writer.Key("classes");
    writer.BeginArray();
    for (const ClassRow& row : tables.classes) {
        writer.BeginObject();
        writer.Scalar("offset", Number(row.nOffset));
        writer.Text("identifier", row.identifier);
        writer.EndObject();
    }
    writer.EndArray();
    writer.Key("objects");
    writer.BeginArray();
    for (const ObjectRow& row : tables.objects) {
        writer.BeginObject();
        writer.Scalar("offset", Number(row.nOffset));
        writer.Scalar("class", Number(row.nClass));
        writer.Text("identity", IdentityText(row));
        writer.EndObject();
    }
    writer.EndArray();
    writer.Key("objectData");
    writer.BeginObject();
    writer.Scalar("offset", Number(tables.nDataOffset));
    writer.Scalar("bytes", Number(tables.data.nSize));
    writer.Text("notShown", kObjectsUnknown);
    writer.EndObject();
}

void Write(JsonWriter& writer, const BmpFile& bmp) {
    writer.Scalar("width", Number(bmp.nWidth));
    writer.Scalar("height", Number(bmp.nHeight));
    writer.Scalar("bitsPerPixel", Number(bmp.nBitsPerPixel));
    writer.Scalar("fileSize", Number(bmp.nFileSize));
    writer.Scalar("dataOffset", Number(bmp.nDataOffset));
    writer.Scalar("compression", Number(bmp.nCompression));
    writer.Scalar("imageSize", Number(bmp.nImageSize));
    writer.Scalar("colours", Number(bmp.nColours));
}

void Write(JsonWriter& writer, const JpegFile& jpeg) {
    writer.Scalar("width", Number(jpeg.nWidth));
    writer.Scalar("height", Number(jpeg.nHeight));
    writer.Scalar("components", Number(jpeg.nComponents));
    writer.Scalar("bitsPerSample", Number(jpeg.nBitsPerSample));
    if (jpeg.nFrameMarker != 0) {
        writer.Text("coding", ProcessName(jpeg.nFrameMarker));
    } else {
        writer.Scalar("coding", nlohmann::json(nullptr));
    }
    writer.Key("segments");
    writer.BeginArray();
    ForEachSegment(jpeg.file, [&writer](const Segment& segment) {
        writer.BeginObject();
        writer.Scalar("offset", Number(segment.nOffset));
        writer.Scalar("bytes", Number(segment.nSize));
        writer.Text("marker", MarkerName(segment.nMarker));
        writer.EndObject();
    });
    writer.EndArray();
}

void Write(JsonWriter& writer, const Problems& problems) {
    writer.Key("problems");
    writer.BeginArray();
    for (const Problem& problem : problems.All()) {
        writer.BeginObject();
        writer.Text("severity", problem.bDamage ? "damage" : "note");
        writer.Scalar("offset", Number(problem.nOffset));
        writer.Text("text", problem.strText);
        writer.EndObject();
    }
    writer.EndArray();
    if (problems.More() != 0) {
        writer.Scalar("moreProblems", Number(problems.More()));
    }
}

}  // namespace

void PrintJson(const Document& document) {
    JsonWriter writer;
    writer.BeginObject();
    writer.Text("file", document.strPath);
    writer.Text("kind", document.KindName());
    writer.Scalar("bytes", Number(document.bytes.size()));
    writer.Scalar("damaged", nlohmann::json(document.IsDamaged()));
    Write(writer, document.ProblemList());
    std::visit([&writer](const auto& known) { Write(writer, known); }, document.content);
    writer.EndObject();
}

std::string IdentityText(const ObjectRow& row) {
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "0x%016llx", static_cast<unsigned long long>(row.nIdentity));
    return text.data();
}
