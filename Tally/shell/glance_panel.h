// The glance: today's and this month's spend, the budgets, the plan-limit headline and
// Open / Rescan / Quit, in a 320-pixel column. It reads everything from the AppModel and
// rebuilds its rows whenever a field the rows show changes, so it follows each scan
// publication and each clock tick. It owns no state besides its widgets. GUI thread only;
// the model must outlive it.
#pragma once

#include <QWidget>

class QLabel;
class QPushButton;
class QVBoxLayout;

namespace tally {

class AppModel;
class BusyIndicator;

class GlancePanel : public QWidget {
    Q_OBJECT
  public:
    static constexpr int kWidth = 320;
    static constexpr int kPadding = 16;

    explicit GlancePanel(AppModel& model, QWidget* parent = nullptr);

    // For tests and the window that embeds the panel: the texts as shown.
    QString todayText() const;
    QString monthText() const;
    QString limitText() const;  // empty when hidden
    QPushButton* openButton() const { return m_open; }
    QPushButton* rescanButton() const { return m_rescan; }
    QPushButton* quitButton() const { return m_quit; }

  signals:
    void openRequested();
    void quitRequested();

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void refresh();
    void rebuildBudgets();
    void styleFigures();

    AppModel& m_model;
    BusyIndicator* m_spinner;
    QLabel* m_today;
    QLabel* m_month;
    QVBoxLayout* m_budgetRows;
    QLabel* m_limits;
    QPushButton* m_open;
    QPushButton* m_rescan;
    QPushButton* m_quit;
};

}  // namespace tally
