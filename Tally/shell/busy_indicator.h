// A small spinning arc shown while work runs. It animates only while running and
// visible, so an idle app has no timer waking it. GUI thread only.
#pragma once

#include <QBasicTimer>
#include <QWidget>

namespace tally {

class BusyIndicator : public QWidget {
    Q_OBJECT
  public:
    explicit BusyIndicator(QWidget* parent = nullptr);
    void setRunning(bool running);
    bool isRunning() const { return m_running; }
    QSize sizeHint() const override { return {16, 16}; }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

  private:
    void updateTimer();
    bool m_running = false;
    int m_angle = 0;
    QBasicTimer m_timer;
};

}  // namespace tally
