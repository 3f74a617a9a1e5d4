#include "support/usage_home.h"

#include "core/date.h"
#include "limits/plan_limits_store.h"

#include <QProcess>
#include <QSignalSpy>

namespace tally::testing {

using namespace usagekit;

QByteArray claudeLine(const char* session, const char* request, const char* project,
                      const char* model, double daysAgo, int input, int output, int cacheRead) {
    const Date when = Date::now().addingSeconds(-daysAgo * 86400);
    return QStringLiteral(
               R"({"type":"assistant","sessionId":"%1","requestId":"%2","uuid":"u-%2","cwd":"%3",)"
               R"("timestamp":"%4","message":{"id":"m-%2","model":"%5","type":"message",)"
               R"("role":"assistant","usage":{"input_tokens":%6,"output_tokens":%7,)"
               R"("cache_read_input_tokens":%8,"cache_creation_input_tokens":0}}})")
               .arg(QLatin1String(session), QLatin1String(request), QLatin1String(project),
                    QString::fromStdString(ISO8601::format(when)), QLatin1String(model))
               .arg(input)
               .arg(output)
               .arg(cacheRead)
               .toUtf8() +
           '\n';
}

void fillFixtureHome(const ScratchHome& home) {
    // Two projects over five weeks, so 7, 30 and 90 days hold different records.
    home.write(
        QStringLiteral(".claude/projects/-src-app/4f6c2a10-aaaa-4bbb-8ccc-000000000001.jsonl"),
        claudeLine("4f6c2a10-aaaa-4bbb-8ccc-000000000001", "r1", "/src/app", "claude-sonnet-4-6",
                   0.1, 12000, 3400, 250000) +
            claudeLine("4f6c2a10-aaaa-4bbb-8ccc-000000000001", "r2", "/src/app", "claude-opus-4-7",
                       2.5, 4000, 9000, 120000) +
            claudeLine("4f6c2a10-aaaa-4bbb-8ccc-000000000001", "r3", "/src/app", "mystery-model-9",
                       3.5, 800, 200, 0));
    home.write(
        QStringLiteral(".claude/projects/-src-api/9d1e7b22-aaaa-4bbb-8ccc-000000000002.jsonl"),
        claudeLine("9d1e7b22-aaaa-4bbb-8ccc-000000000002", "r4", "/src/api", "claude-sonnet-4-6",
                   12, 60000, 15000, 900000) +
            claudeLine("9d1e7b22-aaaa-4bbb-8ccc-000000000002", "r5", "/src/api", "claude-haiku-4-5",
                       40, 30000, 2000, 50000));
    home.copyFixture(QStringLiteral("codex/record_keys.jsonl"),
                     QStringLiteral(".codex/sessions/2026/05/01/rollout-2026-05-01-a.jsonl"));
    home.copyFixture(QStringLiteral("grok/cost_in_ticks.jsonl"),
                     QStringLiteral(".grok/sessions/%2Fsrc%2Fapp/s-1/updates.jsonl"));
}

void fillDemoHome(const ScratchHome& home) {
    QProcess corpus;
    corpus.start(QStringLiteral(TALLY_MAKE_CORPUS),
                 {QStringLiteral("--out"), home.path(), QStringLiteral("--megabytes"),
                  QStringLiteral("4"), QStringLiteral("--files"), QStringLiteral("40"),
                  QStringLiteral("--seed"), QStringLiteral("7")});
    corpus.waitForFinished(60'000);
}

QByteArray runTally(const QStringList& arguments) {
    QProcess tally;
    tally.start(QStringLiteral(TALLY_BINARY), arguments);
    tally.waitForFinished(60'000);
    return tally.readAllStandardOutput();
}

std::unique_ptr<AppModel> localModel(const Date* now, Notifier* notifier) {
    AppModel::Services services = AppModel::Services::live();
    services.refreshRemote = [](UsageLedger&) {};
    services.refreshLimits = [](Date, Notifier*) { return PlanLimitsStore::shared().cached(); };
    if (now) services.now = [now] { return *now; };
    return std::make_unique<AppModel>(notifier, services);
}

bool scanAndWait(AppModel& model) {
    QSignalSpy published(&model, &AppModel::ledgerChanged);
    model.scan();
    // The local publication, then the (empty) remote one.
    return published.wait(30'000) && (published.count() >= 2 || published.wait(10'000));
}

}  // namespace tally::testing
