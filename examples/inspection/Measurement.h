// What is measured of a region: kept in value groups, archived to a file, read back, printed.

#ifndef INSPECTION_MEASUREMENT_H_
#define INSPECTION_MEASUREMENT_H_

#include <string>
#include <vector>

/// Brightness of one region, and how it was measured.
struct Measurement {
    std::string strRegion;
    double dMean = 0;  ///< 0 to 255
    int nMinimum = 0;  ///< 0 to 255
    int nMaximum = 0;  ///< 0 to 255
    double dMs = 0;    ///< time that the measuring took, in milliseconds
    bool bWithinLimit =
        false;  ///< finished before the limit for all regions had passed; otherwise only its first rows count

    bool operator==(const Measurement& other) const;
};

/// Stores each measurement in a value group and archives the groups, one after another.
/// @return whether everything was written.
bool SaveMeasurements(const std::string& strPath, const std::vector<Measurement>& measurements);

/// Reads nCount measurements back. @return those that could be read, at most nCount.
std::vector<Measurement> LoadMeasurements(const std::string& strPath, std::size_t nCount);

/// Prints what was read back, beside whether it equals what was measured.
/// @return whether all of it does.
bool PrintMeasurements(const std::vector<Measurement>& loaded, const std::vector<Measurement>& measured);

#endif  // INSPECTION_MEASUREMENT_H_
