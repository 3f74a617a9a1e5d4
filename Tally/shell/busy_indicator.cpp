#include "shell/busy_indicator.h"

#include "shell/theme.h"

#include <QPainter>
#include <QTimerEvent>

namespace tally {

BusyIndicator::BusyIndicator(QWidget* parent) : QWidget(parent) {
    setFixedSize(sizeHint());
    setAccessibleName(QStringLiteral("Scanning"));
}

void BusyIndicator::setRunning(bool running) {
    m_running = running;
    setVisible(running);
    updateTimer();
}

void BusyIndicator::updateTimer() {
    if (m_running && isVisible())
        m_timer.start(50, this);
    else
        m_timer.stop();
}

void BusyIndicator::showEvent(QShowEvent*) {
    updateTimer();
}
void BusyIndicator::hideEvent(QHideEvent*) {
    updateTimer();
}

void BusyIndicator::timerEvent(QTimerEvent* event) {
    if (event->timerId() != m_timer.timerId()) return;
    m_angle = (m_angle + 30) % 360;
    update();
}

void BusyIndicator::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF circle = QRectF(rect()).adjusted(2, 2, -2, -2);
    painter.setPen(QPen(Theme::fillSelected(), 2));
    painter.drawEllipse(circle);
    painter.setPen(QPen(Theme::secondaryInk(), 2, Qt::SolidLine, Qt::RoundCap));
    painter.drawArc(circle, -m_angle * 16, 100 * 16);
}

}  // namespace tally
