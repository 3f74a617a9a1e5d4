// The dashboard's main view: for the usage window chosen at the top (7, 30 or 90 days, or
// all; saved in the settings) the figures row, the models without a rate, the daily chart,
// the breakdown tables, and beside them the plan limits, seat comparisons, balances and
// problems; plus the last scan's age, Rescan, Export and Settings. An empty home shows
// what Tally reads instead. Everything is read from the model and redrawn when it
// publishes; nothing here computes a figure. GUI thread only; the model and the dialogs
// must outlive the view.
#pragma once

#include "core/date.h"
#include "shell/models/usage_digest.h"

#include <QWidget>

#include <map>
#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QToolButton;

namespace tally {

class AppModel;
class BalancesCard;
class BreakdownPanel;
class DailyChart;
class Dialogs;
class FiguresRow;
class FirstRunPanel;
class PlanLimitsCard;
class ProblemsCard;
class SeatCard;
class SettingsDialog;
class UnpricedStrip;

class UsageView : public QWidget {
    Q_OBJECT
  public:
    UsageView(AppModel& model, Dialogs& dialogs, QWidget* parent = nullptr);

    // Opens Settings (window-modal, deleted when closed) and returns it.
    SettingsDialog* openSettings();
    // The save dialog and the file; true when a file was written.
    bool exportUsage();
    // Creates pricing.json when missing and hands it to the user's editor.
    void openPricing();

    // The parts, for the window that hosts the view and for tests.
    FiguresRow* figures() const { return m_figures; }
    UnpricedStrip* unpricedStrip() const { return m_unpriced; }
    DailyChart* chart() const { return m_chart; }
    BreakdownPanel* breakdowns() const { return m_breakdowns; }
    PlanLimitsCard* limitsCard() const { return m_limits; }
    SeatCard* seatCard() const { return m_seats; }
    BalancesCard* balancesCard() const { return m_balances; }
    ProblemsCard* problemsCard() const { return m_problems; }
    FirstRunPanel* firstRun() const { return m_firstRun; }
    bool showsFirstRun() const;
    QToolButton* windowButton(int64_t days) const;  // 7, 30, 90 or 0 for all
    QLabel* scanAge() const { return m_scanAge; }
    QPushButton* rescanButton() const { return m_rescan; }
    QPushButton* exportButton() const { return m_export; }
    QPushButton* settingsButton() const { return m_settings; }
    const UsageDigest& digest() const { return *m_digest; }

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QWidget* headerBar();
    QWidget* dashboard();
    void setWindow(int64_t days);
    void refreshDigest();
    void refreshSide();
    void refreshScanAge();
    void refreshScanning();

    AppModel& m_model;
    Dialogs& m_dialogs;
    std::shared_ptr<const UsageDigest> m_digest;
    usagekit::Date m_digestDay;  // the local day the digest was made on
    std::map<int64_t, QToolButton*> m_windowButtons;
    QLabel* m_scanAge = nullptr;
    QProgressBar* m_progress = nullptr;
    QPushButton* m_rescan = nullptr;
    QPushButton* m_export = nullptr;
    QPushButton* m_settings = nullptr;
    QStackedWidget* m_pages = nullptr;
    FirstRunPanel* m_firstRun = nullptr;
    FiguresRow* m_figures = nullptr;
    UnpricedStrip* m_unpriced = nullptr;
    DailyChart* m_chart = nullptr;
    BreakdownPanel* m_breakdowns = nullptr;
    PlanLimitsCard* m_limits = nullptr;
    SeatCard* m_seats = nullptr;
    BalancesCard* m_balances = nullptr;
    ProblemsCard* m_problems = nullptr;
};

}  // namespace tally
