#include "shell/side_cards.h"

#include "ledger/fmt.h"
#include "shell/ui_text.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace tally {

using namespace usagekit;

ListCard::ListCard(const QString& title, QWidget* parent) : SurfaceCard(parent) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(16, 14, 16, 14);
    column->setSpacing(8);
    column->addWidget(Fonts::label(title, Fonts::headline(), false, this));
    m_rows = new QVBoxLayout;
    m_rows->setSpacing(8);
    column->addLayout(m_rows);
}

void ListCard::clearRows() {
    while (QLayoutItem* item = m_rows->takeAt(0)) {
        if (QWidget* widget = item->widget()) widget->deleteLater();
        delete item;
    }
}

SeatCard::SeatCard(QWidget* parent) : ListCard(QStringLiteral("Seats this month"), parent) {}

void SeatCard::showComparisons(const std::vector<AppModel::SeatComparison>& comparisons) {
    clearRows();
    setVisible(!comparisons.empty());
    for (const AppModel::SeatComparison& seat : comparisons) {
        auto* row = new QWidget(this);
        row->setObjectName(toQt("seat:" + seat.provider.id));
        auto* grid = new QGridLayout(row);
        grid->setContentsMargins(0, 0, 0, 0);
        grid->setHorizontalSpacing(8);
        grid->setVerticalSpacing(0);
        grid->addWidget(Fonts::label(toQt(seat.provider.name()), Fonts::callout(), false, row), 0,
                        0);
        // Two decimals below 0.1, so a light month reads 0.03×, not 0.0×.
        const double times = seat.equivalent / seat.seat;
        auto* ratio = Fonts::label(QStringLiteral("%1\u00D7 your seat")
                                       .arg(QString::number(times, 'f', times < 0.095 ? 2 : 1)),
                                   Fonts::weighted(Fonts::callout(), QFont::DemiBold), false, row);
        ratio->setObjectName(QStringLiteral("ratio"));
        grid->addWidget(ratio, 0, 1, Qt::AlignRight);
        auto* detail =
            Fonts::label(toQt(Fmt::cents(seat.equivalent) + " API-equivalent \u00B7 seat " +
                              Fmt::cents(seat.seat) + " / month"),
                         Fonts::caption(), true, row);
        detail->setObjectName(QStringLiteral("detail"));
        grid->addWidget(detail, 1, 0, 1, 2);
        rows()->addWidget(row);
    }
}

BalancesCard::BalancesCard(QWidget* parent) : ListCard(QStringLiteral("Balances"), parent) {}

void BalancesCard::showBalances(const std::vector<ProviderBalance>& balances) {
    clearRows();
    setVisible(!balances.empty());
    for (const ProviderBalance& balance : balances) {
        auto* row = new QWidget(this);
        row->setObjectName(toQt("balance:" + balance.id()));
        auto* grid = new QGridLayout(row);
        grid->setContentsMargins(0, 0, 0, 0);
        grid->setHorizontalSpacing(8);
        grid->setVerticalSpacing(0);
        grid->addWidget(Fonts::label(toQt(balance.provider.name() + " \u00B7 " + balance.label),
                                     Fonts::callout(), false, row),
                        0, 0);
        auto* figure = Fonts::label(toQt(balance.figure()),
                                    Fonts::weighted(Fonts::callout(), QFont::DemiBold), false, row);
        figure->setObjectName(QStringLiteral("figure"));
        grid->addWidget(figure, 0, 1, Qt::AlignRight);
        if (!balance.detail.empty()) {
            auto* detail = Fonts::label(toQt(balance.detail), Fonts::caption(), true, row);
            detail->setWordWrap(true);
            grid->addWidget(detail, 1, 0, 1, 2);
        }
        rows()->addWidget(row);
    }
}

ProblemsCard::ProblemsCard(QWidget* parent) : ListCard(QStringLiteral("Problems"), parent) {}

void ProblemsCard::showProblems(const std::vector<std::string>& problems) {
    clearRows();
    setVisible(!problems.empty());
    for (const std::string& problem : problems) {
        auto* line = Fonts::label(toQt(problem), Fonts::caption(), false, this);
        line->setObjectName(QStringLiteral("problem"));
        line->setWordWrap(true);
        line->setTextInteractionFlags(Qt::TextSelectableByMouse);
        rows()->addWidget(line);
    }
}

}  // namespace tally
