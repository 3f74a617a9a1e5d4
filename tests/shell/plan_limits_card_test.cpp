// The plan-limits card as the user reads it: rounded percent with weights decided on the
// real value, rolled-over windows, and the card's own age text.
#include "shell/plan_limits_card.h"
#include "shell/app_model.h"
#include "support/shell_fixture.h"

#include <QLabel>
#include <QtTest>

using namespace tally;
using namespace usagekit;

namespace {

const Date kNow{1'790'000'000};

PlanLimits::Window window(double used, std::optional<Date> resetsAt = std::nullopt) {
    return PlanLimits::Window{"five_hour", "5-hour", used, resetsAt};
}

}  // namespace

class PlanLimitsCardTest : public QObject {
    Q_OBJECT

  private slots:
    void NearlyNinetyShowsNinetyInSemiboldNotBold() {
        LimitBar bar(window(89.6), kNow);
        QCOMPARE(bar.percentLabel()->text(), QStringLiteral("90%"));
        QCOMPARE(bar.percentLabel()->font().weight(), QFont::DemiBold);
    }

    void PassedResetCountsAsZeroAndSaysReset() {
        LimitBar bar(window(97, kNow.addingSeconds(-1)), kNow);
        QCOMPARE(bar.percentLabel()->text(), QStringLiteral("0%"));
        QCOMPARE(bar.resetLabel()->text(), QStringLiteral("reset"));
        QCOMPARE(bar.percentLabel()->font().weight(), QFont::Normal);
    }

    void AgeTurnsToDaysOnlyAtTwoWholeDays() {
        QCOMPARE(limitAge(kNow.addingSeconds(-2879 * 60 - 59), kNow), QStringLiteral("47 h ago"));
        QCOMPARE(limitAge(kNow.addingSeconds(-2880 * 60), kNow), QStringLiteral("2 days ago"));
    }

    void ProviderProblemIsShownAsNotRefreshed() {
        testing::ScratchHome home;
        PlanLimitsStore::Snapshot snapshot;
        PlanLimits claude{
            "claude",
            "Claude",
            "Max",
            {window(41, kNow.addingSeconds(3600)),
             PlanLimits::Window{"seven_day", "Weekly", 93.2, kNow.addingSeconds(3 * 86400)}},
            kNow.addingSeconds(-600),
            std::nullopt};
        snapshot.limits.push_back(claude);
        snapshot.problems["claude"] = "Claude Code is signed out";
        AppModel::Services services = AppModel::Services::live();
        services.now = [] { return kNow; };
        services.refreshLimits = [snapshot](Date, Notifier*) { return snapshot; };
        AppModel model(nullptr, services);
        PlanLimitsCard card(model);
        QSignalSpy refreshed(&model, &AppModel::refreshingLimitsChanged);
        model.refreshLimits();
        QTRY_COMPARE(model.refreshingLimits(), false);
        auto* problem = card.findChild<QLabel*>(QStringLiteral("notRefreshed"));
        QVERIFY(problem);
        QCOMPARE(problem->text(), QStringLiteral("Not refreshed: Claude Code is signed out"));
        QCOMPARE(card.findChild<QLabel*>(QStringLiteral("age"))->text(),
                 QStringLiteral("10 min ago"));
        card.resize(300, card.sizeHint().height());
        for (Theme::Scheme scheme : {Theme::Scheme::light, Theme::Scheme::dark}) {
            Theme::apply(scheme);
            card.show();
            QCoreApplication::processEvents();
            testing::saveShot(card, scheme == Theme::Scheme::dark ? QStringLiteral("limits-dark")
                                                                  : QStringLiteral("limits-light"));
        }
        Theme::apply(Theme::Scheme::light);
    }
};

QTEST_MAIN(PlanLimitsCardTest)
#include "plan_limits_card_test.moc"
