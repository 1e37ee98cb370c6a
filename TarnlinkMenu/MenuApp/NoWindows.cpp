#include "TarnlinkMenu/MenuApp/PreviewCommand.h"
#include "TarnlinkMenu/Renderer.h"

namespace tarn {

std::unique_ptr<Renderer> makeRenderer(Platform &, int &, char **, std::function<void()>) {
    return nullptr;
}

std::unique_ptr<PreviewRenderer> makePreviewRenderer(bool, int) {
    return nullptr;
}

} // namespace tarn
