#include "shell/provider_colors.h"

#include "shell/theme.h"

#include <algorithm>
#include <array>

namespace tally {

using usagekit::Provider;

QColor providerColor(const Provider& provider) {
    const auto& all = Provider::all();
    const auto it = std::find(all.begin(), all.end(), provider);
    // Unknown providers share the last slot of the wheel.
    const int index =
        it == all.end() ? static_cast<int>(all.size()) : static_cast<int>(it - all.begin());
    if (index == 0) return Theme::accent();
    // Hue offsets from the accent, far apart for the providers most homes have.
    static constexpr std::array<int, 8> kOffsets = {0, 180, 110, 250, 300, 330, 155, 40};
    const bool dark = Theme::scheme() == Theme::Scheme::dark;
    const QColor accent = Theme::accent();
    const int hue = (accent.hsvHue() + kOffsets[static_cast<size_t>(index % 8)]) % 360;
    const int round = index / 8;  // a second lap is paler
    const float saturation = dark ? 0.55f - 0.15f * static_cast<float>(round)
                                  : 0.70f - 0.20f * static_cast<float>(round);
    const float lightness = dark ? 0.62f + 0.08f * static_cast<float>(round)
                                 : 0.48f + 0.12f * static_cast<float>(round);
    return QColor::fromHslF(static_cast<float>(hue) / 360.0f, saturation, lightness);
}

}  // namespace tally
