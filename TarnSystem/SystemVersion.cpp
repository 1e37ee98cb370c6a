#include "TarnSystem/SystemVersion.h"

#include "TarnCore/Text.h"

#include <array>

namespace tarn {

SystemVersion SystemVersion::parse(std::string_view text) {
    SystemVersion version;
    const std::array fields = {&version.major, &version.minor, &version.patch};
    std::size_t count = 0;
    for (auto piece = text::nextPiece(text, '.'); piece && count < fields.size();
         piece = text::nextPiece(text, '.'))
        if (const auto number = text::parseInteger(*piece))
            *fields[count++] = *number;
    return version;
}

} // namespace tarn
