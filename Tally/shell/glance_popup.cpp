#include "shell/glance_popup.h"

#include "shell/app_model.h"
#include "shell/glance_panel.h"
#include "shell/theme.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

namespace tally {

namespace {
constexpr int kMargin = 8;
}

GlancePopup::GlancePopup(AppModel& model, QWidget* parent)
    : QWidget(parent, Qt::Popup | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint),
      m_model(model),
      m_panel(new GlancePanel(model, this)) {
    setAttribute(Qt::WA_TranslucentBackground);
    setWindowTitle(QStringLiteral("Tally"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 3);
    layout->addWidget(m_panel);
    // Open and Quit act, then the popup steps out of the way.
    connect(m_panel, &GlancePanel::openRequested, this, &QWidget::hide);
}

QPoint GlancePopup::placement(const QSize& size, const QRect& icon, const QRect& available) {
    QPoint at;
    if (icon.isValid() && !icon.isEmpty()) {
        const bool iconAtTop = icon.center().y() < available.center().y();
        at.setX(icon.right() - size.width() + 1);
        at.setY(iconAtTop ? icon.bottom() + 1 + kMargin / 2
                          : icon.top() - size.height() - kMargin / 2);
    } else {
        at = QPoint(available.right() - size.width() + 1 - kMargin, available.top() + kMargin);
    }
    at.setX(std::clamp(at.x(), available.left(),
                       std::max(available.left(), available.right() - size.width() + 1)));
    at.setY(std::clamp(at.y(), available.top(),
                       std::max(available.top(), available.bottom() - size.height() + 1)));
    return at;
}

void GlancePopup::toggle(const QRect& icon) {
    if (isVisible())
        hide();
    else
        showBeside(icon);
}

void GlancePopup::showBeside(const QRect& icon) {
    m_model.start();
    adjustSize();
    QScreen* screen = icon.isValid() ? QGuiApplication::screenAt(icon.center()) : nullptr;
    if (!screen) screen = QGuiApplication::primaryScreen();
    const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
    move(placement(size(), icon, available));
    show();
    raise();
    activateWindow();
    m_panel->openButton()->setFocus();
}

void GlancePopup::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    Theme::paintSurface(painter, QRectF(rect()), 12);
}

void GlancePopup::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape)
        hide();
    else
        QWidget::keyPressEvent(event);
}

}  // namespace tally
