// The few text styles of the desktop app, sized from the application font so they follow
// the desktop's font settings. GUI thread only (they read QApplication::font()).
#pragma once

#include <QFont>

class QLabel;

namespace tally::Fonts {

QFont body();
QFont callout();   // a step below body: empty-state texts
QFont caption();   // two steps below: labels under figures, footnotes
QFont headline();  // card titles: body size, semibold
QFont figure();    // the large numbers of a figures row
QFont weighted(QFont font, QFont::Weight weight);

// Sets `label`'s font and a secondary or primary text colour that follows the theme.
void style(QLabel* label, const QFont& font, bool secondary = false);

}  // namespace tally::Fonts
