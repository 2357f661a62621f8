#include "Json.h"

#include <array>
#include <cstdio>

#include "Report.h"

namespace {

Json EntryJson(const Entry& entry) {
    Json json = {{"name", TextJson(entry.strName)},
                 {"type", TypeName(entry.nType)},
                 {"offset", entry.nOffset},
                 {"bytes", entry.bytes.nSize},
                 {"value", ValueJson(entry)}};
    json["text"] = TextJson(ValueText(entry));
    return json;
}

void Add(const GroupFile& file, Json& json) {
    json["groups"] = Json::array();
    for (const Group& group : file.groups) {
        Json entries = Json::array();
        for (const Entry& entry : group.entries) {
            entries.push_back(EntryJson(entry));
        }
        json["groups"].push_back({{"offset", group.nOffset}, {"bytes", group.nSize}, {"declared", group.nDeclared}});
        json["groups"].back()["entries"] = std::move(entries);
    }
}

void Add(const ObjectTables& tables, Json& json) {
    json["classes"] = Json::array();
    for (const ClassRow& row : tables.classes) {
        json["classes"].push_back({{"offset", row.nOffset}, {"identifier", TextJson(row.strIdentifier)}});
    }
    json["objects"] = Json::array();
    for (const ObjectRow& row : tables.objects) {
        json["objects"].push_back({{"offset", row.nOffset}, {"class", row.nClass}, {"identity", IdentityText(row)}});
    }
    json["objectData"] = {
        {"offset", tables.nDataOffset}, {"bytes", tables.data.nSize}, {"notShown", std::string(kObjectsUnknown)}};
}

void Add(const BmpFile& bmp, Json& json) {
    json["width"] = bmp.nWidth;
    json["height"] = bmp.nHeight;
    json["bitsPerPixel"] = bmp.nBitsPerPixel;
    json["fileSize"] = bmp.nFileSize;
    json["dataOffset"] = bmp.nDataOffset;
    json["compression"] = bmp.nCompression;
    json["imageSize"] = bmp.nImageSize;
    json["colours"] = bmp.nColours;
}

void Add(const JpegFile& jpeg, Json& json) {
    json["width"] = jpeg.nWidth;
    json["height"] = jpeg.nHeight;
    json["components"] = jpeg.nComponents;
    json["bitsPerSample"] = jpeg.nBitsPerSample;
    json["coding"] = jpeg.nFrameMarker != 0 ? Json(ProcessName(jpeg.nFrameMarker)) : Json(nullptr);
    json["segments"] = Json::array();
    for (const Segment& segment : jpeg.segments) {
        json["segments"].push_back(
            {{"offset", segment.nOffset}, {"bytes", segment.nSize}, {"marker", MarkerName(segment.nMarker)}});
    }
}

}  // namespace

Json DocumentJson(const Document& document) {
    Json json = {{"file", TextJson(document.strPath)},
                 {"kind", document.KindName()},
                 {"bytes", document.bytes.size()},
                 {"damaged", document.IsDamaged()}};
    json["problems"] = Json::array();
    for (const Problem& problem : document.ProblemList().All()) {
        json["problems"].push_back({{"severity", problem.bDamage ? "damage" : "note"},
                                    {"offset", problem.nOffset},
                                    {"text", TextJson(problem.strText)}});
    }
    if (document.ProblemList().More() != 0) {
        json["moreProblems"] = document.ProblemList().More();
    }
    std::visit([&json](const auto& known) { Add(known, json); }, document.content);
    return json;
}

std::string IdentityText(const ObjectRow& row) {
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "0x%016llx", static_cast<unsigned long long>(row.nIdentity));
    return text.data();
}
