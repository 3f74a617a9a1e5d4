#include "shell/desktop_app.h"

#include "shell/dashboard_window.h"
#include "shell/desktop_notifier.h"
#include "shell/dialogs.h"
#include "shell/glance_panel.h"
#include "shell/glance_popup.h"
#include "shell/process_exit.h"
#include "shell/single_instance.h"
#include "shell/theme.h"
#include "shell/tray_controller.h"

#include <QApplication>
#include <QSystemTrayIcon>
#include <QTimer>

#include <cstring>

namespace tally {

DesktopApp::DesktopApp(AppModel::Services services, QObject* parent)
    : QObject(parent),
      m_theme(std::make_unique<ThemeWatcher>()),
      m_dialogs(std::make_unique<Dialogs>()),
      m_notifier(std::make_unique<DesktopNotifier>()),
      m_model(std::make_unique<AppModel>(m_notifier.get(), std::move(services))) {
    const bool tray = QSystemTrayIcon::isSystemTrayAvailable();
    if (!tray) m_topPanel = new GlancePanel(*m_model);
    m_dashboard = std::make_unique<DashboardWindow>(*m_model, *m_dialogs, m_topPanel);

    auto wire = [this](GlancePanel& panel) {
        connect(&panel, &GlancePanel::openRequested, m_dashboard.get(), &DashboardWindow::present);
        connect(&panel, &GlancePanel::quitRequested, this, &DesktopApp::quitRequested);
    };
    if (m_topPanel) {
        wire(*m_topPanel);
        return;
    }
    m_popup = std::make_unique<GlancePopup>(*m_model);
    m_tray = std::make_unique<TrayController>(*m_model);
    wire(m_popup->panel());
    connect(m_tray.get(), &TrayController::glanceRequested, m_popup.get(), &GlancePopup::toggle);
    connect(m_tray.get(), &TrayController::openRequested, m_dashboard.get(),
            &DashboardWindow::present);
    connect(m_tray.get(), &TrayController::quitRequested, this, &DesktopApp::quitRequested);
    connect(m_theme.get(), &ThemeWatcher::schemeChanged, m_tray.get(), &TrayController::refresh);
}

DesktopApp::~DesktopApp() = default;

GlancePanel& DesktopApp::glance() const {
    return m_popup ? m_popup->panel() : *m_topPanel;
}

void DesktopApp::start(bool hidden) {
    // Without a tray the window is the app: closing it quits.
    QApplication::setQuitOnLastWindowClosed(!m_tray);
    if (m_tray) m_tray->show();
    if (!m_tray || !hidden) m_dashboard->present();
    QTimer::singleShot(0, m_model.get(), &AppModel::start);
}

int runDesktop(int argc, char** argv) {
    bool hidden = false;
    for (int i = 1; i < argc; ++i)
        hidden = hidden || std::strcmp(argv[i], "--hidden") == 0;

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("tally"));
    QApplication::setApplicationDisplayName(QStringLiteral("Tally"));
    QApplication::setApplicationVersion(QStringLiteral(TALLY_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("app.tally.Tally"));

    SingleInstance instance;
    if (instance.askRunningToShow()) return 0;

    DesktopApp desktop;
    QApplication::setWindowIcon(Theme::flame(true, Theme::accent()));
    QObject::connect(&desktop, &DesktopApp::quitRequested, &app, &QApplication::quit);
    QObject::connect(&instance, &SingleInstance::showRequested, &desktop.dashboard(),
                     &DashboardWindow::present);
    desktop.start(hidden);
    leaveProcess(app.exec());
}

}  // namespace tally
