// Settings, opened from the dashboard: provider keys (in the Secret Service), seat prices,
// spend budgets and whether budget crossings notify. Nothing is buffered: each change is
// published to the model and saved to its file (or the Secret Service) at once, so Done
// only closes the dialog. GUI thread only; the model must outlive the dialog.
#pragma once

// app_model.h first: UsageKit headers must come before Qt defines `slots`.
#include "shell/app_model.h"

#include <QDialog>

#include <map>
#include <string>
#include <vector>

class QCheckBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace tally {

class KeyField;

class SettingsDialog : public QDialog {
    Q_OBJECT
  public:
    explicit SettingsDialog(AppModel& model, QWidget* parent = nullptr);

    // "Start Tally when I log in": writes or removes the login entry (Autostart).
    QCheckBox* startAtLoginToggle() const { return m_startAtLogin; }

    KeyField* keyField(const std::string& account) const;
    QDoubleSpinBox* seatField(const std::string& providerID) const;
    QCheckBox* notifyToggle() const { return m_notify; }
    QPushButton* addMonthlyButton() const { return m_addMonthly; }
    QPushButton* addDailyButton() const { return m_addDaily; }
    // The remove button of each budget row, in list order.
    std::vector<QPushButton*> removeButtons() const;
    QLabel* noBudgetsLabel() const { return m_noBudgets; }

  private:
    QWidget* keysSection();
    QWidget* seatsSection();
    QWidget* budgetsSection();
    void rebuildBudgets();
    void setSeat(const std::string& providerID, double price);
    void setNotify(bool notify);
    void addBudget(bool monthly);
    void removeBudget(const std::string& id);

    AppModel& m_model;
    QCheckBox* m_startAtLogin = nullptr;
    std::vector<KeyField*> m_keys;
    std::map<std::string, QDoubleSpinBox*> m_seats;
    QLabel* m_noSecretService = nullptr;
    QCheckBox* m_notify = nullptr;
    QLabel* m_noBudgets = nullptr;
    QVBoxLayout* m_budgetRows = nullptr;
    QPushButton* m_addMonthly = nullptr;
    QPushButton* m_addDaily = nullptr;
};

}  // namespace tally
