#include "shell/desktop_app.h"

#include "shell/app_model.h"
#include "shell/dashboard_window.h"
#include "shell/glance_panel.h"
#include "shell/glance_popup.h"
#include "shell/process_exit.h"
#include "shell/single_instance.h"
#include "shell/theme.h"
#include "shell/tray_controller.h"

#include <QApplication>
#include <QSystemTrayIcon>
#include <QTimer>

#include <cstdio>
#include <cstring>
#include <memory>

namespace tally {

namespace {

bool hasArgument(int argc, char** argv, const char* wanted) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], wanted) == 0) return true;
    return false;
}

}  // namespace

int runDesktop(int argc, char** argv) {
    // Started by the session's autostart: only the tray icon, no window.
    const bool hidden = hasArgument(argc, argv, "--hidden");

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("tally"));
    QApplication::setApplicationDisplayName(QStringLiteral("Tally"));
    QApplication::setApplicationVersion(QStringLiteral(TALLY_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("app.tally.Tally"));

    SingleInstance instance;
    if (instance.askRunningToShow()) return 0;

    ThemeWatcher theme;
    QApplication::setWindowIcon(Theme::flame(true, Theme::accent()));
    AppModel model(nullptr);

    const bool tray = QSystemTrayIcon::isSystemTrayAvailable();
    QApplication::setQuitOnLastWindowClosed(!tray);
    std::unique_ptr<GlancePopup> popup;
    std::unique_ptr<TrayController> trayController;
    GlancePanel* topPanel = tray ? nullptr : new GlancePanel(model);
    DashboardWindow dashboard(model, topPanel);
    if (topPanel) {
        QObject::connect(topPanel, &GlancePanel::quitRequested, &app, &QApplication::quit);
        QObject::connect(topPanel, &GlancePanel::openRequested, &dashboard,
                         &DashboardWindow::present);
    }

    if (tray) {
        popup = std::make_unique<GlancePopup>(model);
        trayController = std::make_unique<TrayController>(model);
        QObject::connect(trayController.get(), &TrayController::glanceRequested, popup.get(),
                         &GlancePopup::toggle);
        QObject::connect(trayController.get(), &TrayController::openRequested, &dashboard,
                         &DashboardWindow::present);
        QObject::connect(&popup->panel(), &GlancePanel::openRequested, &dashboard,
                         &DashboardWindow::present);
        QObject::connect(trayController.get(), &TrayController::quitRequested, &app,
                         &QApplication::quit);
        QObject::connect(&popup->panel(), &GlancePanel::quitRequested, &app, &QApplication::quit);
        QObject::connect(&theme, &ThemeWatcher::schemeChanged, trayController.get(),
                         &TrayController::refresh);
        trayController->show();
    }
    QObject::connect(&instance, &SingleInstance::showRequested, &dashboard,
                     &DashboardWindow::present);

    // The tray icon (or the window) is up first; the first scan starts on the next turn of
    // the event loop, on a worker thread.
    if (!tray || !hidden) dashboard.present();
    QTimer::singleShot(0, &model, &AppModel::start);

    leaveProcess(app.exec());
}

}  // namespace tally
