// The "dashboard" window, titled "Tally": the usage view on paper-coloured ground.
// Without a tray the glance panel sits at its top and closing the window quits; with a
// tray, closing only hides it. Its first appearance starts the model. GUI thread only;
// the model must outlive it.
#pragma once

#include <QMainWindow>

namespace tally {

class AppModel;
class Dialogs;
class UsageView;

class DashboardWindow : public QMainWindow {
    Q_OBJECT
  public:
    static constexpr QSize kMinimumSize{920, 640};

    // `top`, when given, is shown above the main view (the glance panel when there is no
    // tray); the window takes ownership of it. `dialogs` must outlive the window.
    DashboardWindow(AppModel& model, Dialogs& dialogs, QWidget* top = nullptr,
                    QWidget* parent = nullptr);
    UsageView& usageView() const { return *m_view; }

    // Shows the window, brings it to the front and gives it focus.
    void present();

  protected:
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    void paintPaper();

    AppModel& m_model;
    UsageView* m_view;
};

}  // namespace tally
