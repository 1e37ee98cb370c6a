#pragma once

#include "TarnSystem/Doctor.h"

#include <string>
#include <vector>

/// What the doctor has found, as text. What others named cannot disturb the terminal.
namespace tarn::findingsText {

/// For a person: a line and an indented one for each finding, then what was not seen.
std::string describe(const std::vector<doctor::Finding> &findings, const std::vector<std::string> &notSeen);
/// For programs: one line of JSON with the keys "findings", whose elements hold "id", "finding" and "remedy",
/// and "notSeen".
std::string encode(const std::vector<doctor::Finding> &findings, const std::vector<std::string> &notSeen);

} // namespace tarn::findingsText
