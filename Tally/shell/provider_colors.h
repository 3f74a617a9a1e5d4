// One colour per provider for charts and legends, derived from the theme: Claude Code
// takes the accent, the others spread around the colour wheel at the accent's strength,
// lighter in the dark scheme. Stable: a provider keeps its colour across windows and runs.
// GUI thread only (reads the scheme).
#pragma once

#include "core/provider.h"

#include <QColor>

namespace tally {

QColor providerColor(const usagekit::Provider& provider);

}  // namespace tally
