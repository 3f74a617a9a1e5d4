// What an empty home shows instead of an empty grid: what Tally reads, where it looks for
// each tool's logs on this computer, and that accounts need a key in Settings. Says so
// while the first scan is still reading. GUI thread only.
#pragma once

#include <QWidget>

class QLabel;

namespace tally {

class FirstRunPanel : public QWidget {
    Q_OBJECT
  public:
    explicit FirstRunPanel(QWidget* parent = nullptr);
    void setScanning(bool scanning);
    QLabel* headline() const { return m_headline; }

  signals:
    void settingsRequested();

  private:
    QLabel* m_headline;
    QLabel* m_lead;
};

}  // namespace tally
