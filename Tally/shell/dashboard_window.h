// The "dashboard" window, titled "Tally": the app's main view on paper-coloured ground.
// Without a tray the glance panel sits at its top and closing the window quits; with a
// tray, closing only hides it. Its first appearance starts the model. GUI thread only;
// the model must outlive it.
#pragma once

#include <QMainWindow>

class QLabel;

namespace tally {

class AppModel;

class DashboardWindow : public QMainWindow {
    Q_OBJECT
  public:
    static constexpr QSize kMinimumSize{920, 640};

    // `top`, when given, is shown above the main view (the glance panel when there is no
    // tray); the window takes ownership of it.
    explicit DashboardWindow(AppModel& model, QWidget* top = nullptr, QWidget* parent = nullptr);

    // Shows the window, brings it to the front and gives it focus.
    void present();

  protected:
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    void refresh();
    void paintPaper();

    AppModel& m_model;
    QLabel* m_title;
    QLabel* m_problems;
};

}  // namespace tally
