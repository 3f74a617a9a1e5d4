#include "shell/ui_text.h"

#include "shell/theme.h"

#include <QApplication>
#include <QLabel>

namespace tally::Fonts {

namespace {
QFont sized(qreal delta) {
    QFont font = QApplication::font();
    font.setPointSizeF(std::max<qreal>(6, font.pointSizeF() + delta));
    return font;
}
}  // namespace

QFont body() {
    return QApplication::font();
}
QFont callout() {
    return sized(-0.5);
}
QFont caption() {
    return sized(-1.5);
}
QFont headline() {
    return weighted(body(), QFont::DemiBold);
}
QFont figure() {
    return weighted(sized(7), QFont::DemiBold);
}
QFont weighted(QFont font, QFont::Weight weight) {
    font.setWeight(weight);
    return font;
}

void style(QLabel* label, const QFont& font, bool secondary) {
    label->setFont(font);
    label->setForegroundRole(secondary ? QPalette::PlaceholderText : QPalette::WindowText);
}

QLabel* label(const QString& text, const QFont& font, bool secondary, QWidget* parent) {
    auto* item = new QLabel(text, parent);
    item->setTextFormat(Qt::PlainText);
    style(item, font, secondary);
    return item;
}

}  // namespace tally::Fonts
