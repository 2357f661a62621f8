#include "Measurement.h"

#include <algorithm>
#include <cstdio>

#include "Files.h"

namespace {

constexpr char kRegion[] = "region";
constexpr char kMean[] = "mean brightness";
constexpr char kMinimum[] = "minimum brightness";
constexpr char kMaximum[] = "maximum brightness";
constexpr char kMilliseconds[] = "milliseconds";
constexpr char kWithinLimit[] = "within limit";

// A setter answers 0 on success.
bool Store(const Measurement& measurement, ITnRobotDataValueGroup& group) {
    return group.SetValue(kRegion, measurement.strRegion.c_str()) == 0 &&
           group.SetValue(kMean, measurement.dMean) == 0 && group.SetValue(kMinimum, measurement.nMinimum) == 0 &&
           group.SetValue(kMaximum, measurement.nMaximum) == 0 && group.SetValue(kMilliseconds, measurement.dMs) == 0 &&
           group.SetValue(kWithinLimit, measurement.bWithinLimit) == 0;
}

// A getter reads as exactly the type that was stored; its error is 0 on success.
bool Fetch(ITnRobotDataValueGroup& group, Measurement& measurement) {
    int nErrors[6] = {};
    const char* lpszRegion = group.StringData(kRegion, &nErrors[0]);
    measurement.strRegion = lpszRegion != nullptr ? lpszRegion : "";
    measurement.dMean = group.DoubleData(kMean, &nErrors[1]);
    measurement.nMinimum = group.IntData(kMinimum, &nErrors[2]);
    measurement.nMaximum = group.IntData(kMaximum, &nErrors[3]);
    measurement.dMs = group.DoubleData(kMilliseconds, &nErrors[4]);
    measurement.bWithinLimit = group.BoolData(kWithinLimit, &nErrors[5]);
    return std::all_of(std::begin(nErrors), std::end(nErrors), [](int nError) { return nError == 0; });
}

const char* YesOrNo(bool bYes) {
    return bYes ? "yes" : "NO";
}

// All measurements as one object: what SaveTo saves as a whole or not at all.
class Series final : public ITnRobotSerialize {
public:
    explicit Series(const std::vector<Measurement>& measurements) : m_measurements(measurements) {}

    int Serialize(ITnRobotArchive* pArchive) override {
        const bool bOk = std::all_of(m_measurements.begin(), m_measurements.end(), [pArchive](const Measurement& m) {
            const auto group = tn::MakeValueDataGroup();
            return Store(m, *group) && group->Serialize(pArchive) == 1;
        });
        return bOk ? 1 : 0;
    }

private:
    const std::vector<Measurement>& m_measurements;
};

}  // namespace

bool Measurement::operator==(const Measurement& other) const {
    return strRegion == other.strRegion && dMean == other.dMean && nMinimum == other.nMinimum &&
           nMaximum == other.nMaximum && dMs == other.dMs && bWithinLimit == other.bWithinLimit;
}

bool SaveMeasurements(const std::string& strPath, const std::vector<Measurement>& measurements) {
    Series series(measurements);
    return tn::SaveTo(strPath.c_str(), series);
}

std::vector<Measurement> LoadMeasurements(const std::string& strPath, std::size_t nCount) {
    std::vector<Measurement> measurements;
    const TnRobotPtr<ITnRobotFile> file = OpenFile(strPath, false);
    if (!file) {
        return measurements;
    }
    const AttachedArchive archive(*file, false);
    while (measurements.size() < nCount) {
        const auto group = tn::MakeValueDataGroup();
        Measurement measurement;
        if (group->Serialize(archive.Get()) != 1 || !Fetch(*group, measurement)) {
            break;
        }
        measurements.push_back(measurement);
    }
    return measurements;
}

bool PrintMeasurements(const std::vector<Measurement>& loaded, const std::vector<Measurement>& measured) {
    std::printf("%-14s %7s %4s %4s %8s  %-12s  %s\n", "region", "mean", "min", "max", "ms", "within limit",
                "equal to what was measured");
    for (std::size_t i = 0; i < loaded.size(); ++i) {
        const Measurement& read = loaded[i];
        std::printf("%-14s %7.2f %4d %4d %8.3f  %-12s  %s\n", read.strRegion.c_str(), read.dMean, read.nMinimum,
                    read.nMaximum, read.dMs, YesOrNo(read.bWithinLimit), YesOrNo(read == measured[i]));
    }
    return loaded == measured;
}
