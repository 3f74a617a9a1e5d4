// Measures the desktop app as a user meets it, on a generated home (bench/make_corpus).
// Run it under a display and a private bus: `make bench-desktop` does
// (xvfb-run + dbus-run-session).
//   tray up     exec of `tally` until its tray icon registered with the tray host (a fake
//               StatusNotifierWatcher), cold (empty support directory) and warm
//   published   in process: a cold scan started until the local figures are published
//   GUI stall   the longest gap between two ticks of a 5 ms timer on the GUI thread while
//               a cold scan and a remote refresh against a slow loopback server run
//   idle        event-loop wake-ups in 10 s and in 25 s once everything settled, dashboard shown
//   RSS         resident memory with the corpus's ledger published and the views shown
#include "shell/app_model.h"
#include "shell/dashboard_window.h"
#include "shell/dialogs.h"
#include "shell/glance_popup.h"
#include "shell/theme.h"

#include <httplib.h>

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

long residentKilobytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return 0;
}

// Runs the event loop for `milliseconds`, asleep whenever nothing is due.
void idleFor(int milliseconds) {
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

void waitFor(const std::function<bool()>& done, int milliseconds) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

// Milliseconds from exec of `tally` until the watcher logs its tray item. The watcher
// keeps its log open, so a registration shows as the log growing.
double trayUp(const QString& home, const QString& support, const QString& watcherLog) {
    const qint64 before = QFileInfo(watcherLog).size();
    QProcess tally;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("TALLY_SUPPORT_DIR"), support);
    tally.setProcessEnvironment(env);
    QElapsedTimer clock;
    clock.start();
    tally.start(QStringLiteral(TALLY_BINARY), {QStringLiteral("--hidden")});
    double up = -1;
    while (clock.elapsed() < 10'000) {
        if (QFileInfo(watcherLog).size() > before) {
            up = static_cast<double>(clock.nsecsElapsed()) / 1e6;
            break;
        }
        QThread::usleep(500);
    }
    // Let the scan finish so the next warm run finds the cache written.
    QThread::msleep(1500);
    tally.terminate();
    tally.waitForFinished(5000);
    return up;
}

}  // namespace

int main(int argc, char** argv) {
    QString home;
    int runs = 5;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::string(argv[i]) == "--home")
            home = QString::fromLocal8Bit(argv[++i]);
        else if (std::string(argv[i]) == "--runs")
            runs = std::stoi(argv[++i]);
    }
    if (home.isEmpty()) {
        std::fprintf(stderr, "usage: desktop_bench --home DIR [--runs N]\n");
        return 2;
    }

    // Tray up, whole process: a fake tray host first, as a desktop session has one.
    QTemporaryDir scratch;
    const QString watcherLog = scratch.path() + QStringLiteral("/watcher.log");
    QProcess watcher;
    watcher.start(QStringLiteral(TALLY_FAKE_TRAY_WATCHER), {watcherLog});
    watcher.waitForStarted();
    QThread::msleep(300);
    std::vector<double> cold, warm;
    for (int run = 0; run < runs; ++run) {
        QTemporaryDir support;
        cold.push_back(trayUp(home, support.path(), watcherLog));
        warm.push_back(trayUp(home, support.path(), watcherLog));
    }
    watcher.terminate();
    watcher.waitForFinished();
    std::printf(
        "tray up      cold %7.1f ms   warm %7.1f ms   (exec to tray registration, median of %d)\n",
        median(cold), median(warm), runs);

    // In process: a cold scan and a slow remote refresh, watched from the GUI thread.
    httplib::Server slow;
    slow.Get(".*", [](const httplib::Request&, httplib::Response& response) {
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        response.set_content(R"({"data":[],"has_more":false})", "application/json");
    });
    const int port = slow.bind_to_any_port("127.0.0.1");
    std::thread server([&] { slow.listen_after_bind(); });
    const QByteArray endpoint = "http://127.0.0.1:" + QByteArray::number(port);
    for (const char* name : {"ANTHROPIC", "OPENAI", "OPENROUTER", "XAI", "DEEPSEEK"})
        qputenv((std::string("TALLY_ENDPOINT_") + name).c_str(), endpoint);
    for (const char* key : {"TALLY_ANTHROPIC_ADMIN_KEY", "TALLY_OPENAI_ADMIN_KEY",
                            "TALLY_OPENROUTER_MANAGEMENT_KEY", "TALLY_DEEPSEEK_API_KEY"})
        qputenv(key, "sk-bench-not-a-real-key-000000");
    QTemporaryDir support;
    qputenv("HOME", home.toLocal8Bit());
    qputenv("TALLY_SUPPORT_DIR", support.path().toLocal8Bit());

    QApplication app(argc, argv);
    tally::ThemeWatcher theme;
    tally::AppModel model(nullptr);
    tally::Dialogs dialogs;
    tally::DashboardWindow dashboard(model, dialogs);
    tally::GlancePopup popup(model);
    dashboard.show();

    QElapsedTimer clock;
    qint64 lastTick = 0, longestGap = 0;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        if (lastTick) longestGap = std::max(longestGap, now - lastTick);
        lastTick = now;
    });
    int publications = 0;
    double localPublished = 0;
    QObject::connect(&model, &tally::AppModel::ledgerChanged, [&] {
        if (++publications == 1) localPublished = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    });
    clock.start();
    ticker.start(5);
    model.scan();
    waitFor([&] { return publications >= 2; }, 120'000);
    ticker.stop();
    std::printf("published    %7.1f ms   (cold scan of the corpus, %zu records)\n", localPublished,
                model.ledger()->records.size());
    std::printf(
        "GUI stall    %7.1f ms   (longest gap of a 5 ms timer during the scan and a remote refresh "
        "of %.1f s)\n",
        static_cast<double>(longestGap) / 1e6, static_cast<double>(clock.elapsed()) / 1000);

    idleFor(2000);
    // Entering the loop and the window's own end timer wake it once each; anything else is
    // the app's. Two windows of different lengths tell the two apart.
    int wakeups = 0;
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake,
                     [&] { ++wakeups; });
    std::vector<int> counts;
    for (int seconds : {10, 25}) {
        wakeups = 0;
        idleFor(seconds * 1000);
        counts.push_back(wakeups);
    }
    std::printf("idle         %7d wake-ups in 10 s, %d in 25 s (2 are the measurement's own)\n",
                counts[0], counts[1]);
    std::printf("RSS          %7.1f MB  (ledger published, dashboard shown)\n",
                static_cast<double>(residentKilobytes()) / 1024);
    slow.stop();
    server.join();
    return 0;
}
