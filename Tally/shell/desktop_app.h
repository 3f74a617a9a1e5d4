// The desktop app as a whole: the model and everything that shows it (tray icon, glance
// popup, dashboard window), the colour-scheme watcher and the notifier, wired together.
// runDesktop() makes one for the process; tests make one to use the app as a person does.
// GUI thread only; needs a QApplication that outlives it.
#pragma once

#include "shell/app_model.h"

#include <QObject>

#include <memory>

namespace tally {

class DashboardWindow;
class DesktopNotifier;
class Dialogs;
class GlancePanel;
class GlancePopup;
class ThemeWatcher;
class TrayController;

class DesktopApp : public QObject {
    Q_OBJECT
  public:
    // Looks for a tray once, here. Shows nothing yet.
    explicit DesktopApp(AppModel::Services services = AppModel::Services::live(),
                        QObject* parent = nullptr);
    ~DesktopApp() override;

    // Shows the tray icon and, unless `hidden` (a start at login) with a tray there, the
    // dashboard; the first scan starts on the next turn of the event loop.
    void start(bool hidden);

    AppModel& model() const { return *m_model; }
    DashboardWindow& dashboard() const { return *m_dashboard; }
    // Null without a tray.
    TrayController* tray() const { return m_tray.get(); }
    GlancePopup* popup() const { return m_popup.get(); }
    // The glance panel on screen: in the popup, or at the top of the dashboard.
    GlancePanel& glance() const;

  signals:
    void quitRequested();

  private:
    std::unique_ptr<ThemeWatcher> m_theme;
    std::unique_ptr<Dialogs> m_dialogs;
    std::unique_ptr<DesktopNotifier> m_notifier;
    std::unique_ptr<AppModel> m_model;
    std::unique_ptr<GlancePopup> m_popup;
    std::unique_ptr<TrayController> m_tray;
    GlancePanel* m_topPanel = nullptr;
    std::unique_ptr<DashboardWindow> m_dashboard;
};

// The normal start of `tally`, on the main thread: one instance per user, the app until
// Quit. Returns 0 after Quit, or when another instance was asked to show itself. The
// caller has made sure a display is there (Qt aborts the process when there is none).
// "--hidden" among the arguments (a start at login) shows only the tray icon.
int runDesktop(int argc, char** argv);

}  // namespace tally
