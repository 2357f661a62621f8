// Samples of the running machine in a value group: taken, saved, read back, compared.

#ifndef MACHINE_SAMPLES_SAMPLES_H_
#define MACHINE_SAMPLES_SAMPLES_H_

#include <string>

/// Samples the machine and writes samples.tnr (the archive) and samples.txt (name, type and bytes
/// of each sample as plain text, for the comparison) into a directory. @return success.
bool SaveSamples(const std::string& strDirectory);

/// Reads samples.tnr back, prints it, and compares each value with samples.txt.
/// @return whether every value is what was saved.
bool CheckSamples(const std::string& strDirectory);

#endif  // MACHINE_SAMPLES_SAMPLES_H_
