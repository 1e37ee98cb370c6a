#pragma once

#include "TarnlinkMenu/View.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// Draws windows into pictures, without a display.
///
/// Thread: main thread. At most one in a process, and no Renderer beside it.
class PreviewRenderer {
public:
    virtual ~PreviewRenderer() = default;
    /// The bytes of a PNG file; none when the system could not draw it.
    virtual std::string png(const WindowContent &content) = 0;
};

/// The toolkit's of this build, `scale` pixels to a point; null when it has none.
std::unique_ptr<PreviewRenderer> makePreviewRenderer(bool isDark, int scale);

/// Carries out "--list-scenarios" and "--render-preview", and returns the exit status; absent when the
/// command line (without the program's name) asks for neither.
std::optional<int> runPreviewCommand(const std::vector<std::string> &words);

} // namespace tarn
