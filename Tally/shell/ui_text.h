// The few text styles of the desktop app, sized from the application font so they follow
// the desktop's font settings, and the labels that show UsageKit's texts in them. GUI
// thread only (they read QApplication::font()).
#pragma once

#include <QFont>
#include <QString>

#include <string>

class QLabel;
class QWidget;

namespace tally::Fonts {

QFont body();
QFont callout();   // a step below body: empty-state texts
QFont caption();   // two steps below: labels under figures, footnotes
QFont headline();  // card titles: body size, semibold
QFont figure();    // the large numbers of a figures row
QFont weighted(QFont font, QFont::Weight weight);

// Sets `label`'s font and a secondary or primary text colour that follows the theme.
void style(QLabel* label, const QFont& font, bool secondary = false);
// A plain-text label (never read as rich text: problem lines and names come from files)
// in that style.
QLabel* label(const QString& text, const QFont& font, bool secondary, QWidget* parent);

}  // namespace tally::Fonts

namespace tally {

// UsageKit's UTF-8 text as Qt's.
inline QString toQt(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace tally
