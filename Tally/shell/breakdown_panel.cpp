#include "shell/breakdown_panel.h"

#include "shell/ui_text.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QTabBar>
#include <QTableView>
#include <QVBoxLayout>

namespace tally {

using Kind = BreakdownModel::Kind;

BreakdownPanel::BreakdownPanel(QWidget* parent) : SurfaceCard(parent) {
    for (Kind kind : {Kind::provider, Kind::model, Kind::project, Kind::session, Kind::kind})
        m_models[static_cast<size_t>(kind)] = new BreakdownModel(kind, this);
    m_proxy = new QSortFilterProxyModel(this);
    m_proxy->setSortRole(BreakdownModel::SortRole);
    m_proxy->setFilterCaseSensitivity(Qt::CaseInsensitive);
    m_proxy->setFilterKeyColumn(0);

    m_tabs = new QTabBar(this);
    m_tabs->setDrawBase(false);
    m_tabs->setExpanding(false);
    for (const char* title : {"Providers", "Models", "Projects", "Sessions", "Kinds"})
        m_tabs->addTab(QLatin1String(title));
    m_filter = new QLineEdit(this);
    m_filter->setPlaceholderText(QStringLiteral("Filter"));
    m_filter->setClearButtonEnabled(true);
    m_filter->setMaximumWidth(220);
    connect(m_filter, &QLineEdit::textChanged, m_proxy,
            &QSortFilterProxyModel::setFilterFixedString);

    m_table = new QTableView(this);
    m_table->setModel(m_proxy);
    m_table->setSortingEnabled(true);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setShowGrid(false);
    m_table->setWordWrap(false);
    m_table->setFrameShape(QFrame::NoFrame);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 8);
    m_table->horizontalHeader()->setHighlightSections(false);
    m_table->horizontalHeader()->setMinimumSectionSize(60);
    m_table->setMinimumHeight(260);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &BreakdownPanel::selectionChanged);
    connect(m_tabs, &QTabBar::currentChanged, this,
            [this](int index) { showBreakdown(static_cast<Kind>(index)); });

    auto* header = new QHBoxLayout;
    header->addWidget(m_tabs);
    header->addStretch(1);
    header->addWidget(m_filter);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(12, 10, 12, 12);
    column->setSpacing(6);
    column->addLayout(header);
    column->addWidget(m_table, 1);
    showBreakdown(Kind::provider);
}

BreakdownModel* BreakdownPanel::model(Kind kind) const {
    return m_models[static_cast<size_t>(kind)];
}

Kind BreakdownPanel::shownKind() const {
    return static_cast<Kind>(m_tabs->currentIndex());
}

void BreakdownPanel::showDigest(const UsageDigest& digest) {
    model(Kind::provider)->setSlices(digest.providers);
    model(Kind::model)->setSlices(digest.models);
    model(Kind::project)->setSlices(digest.projects);
    model(Kind::session)->setSlices(digest.sessions, digest.sessionSpans);
    model(Kind::kind)->setSlices(digest.kinds);
}

void BreakdownPanel::showBreakdown(Kind kind) {
    if (m_tabs->currentIndex() != static_cast<int>(kind)) {
        m_tabs->setCurrentIndex(static_cast<int>(kind));  // comes back here
        return;
    }
    BreakdownModel* source = model(kind);
    if (m_proxy->sourceModel() == source) return;
    m_proxy->setSourceModel(source);
    m_table->sortByColumn(source->sectionOf(BreakdownModel::tokens), Qt::DescendingOrder);
    // The label takes the room; figures get fixed columns wide enough for their largest
    // values, so switching tabs or windows does not make the table jump.
    QHeaderView* header = m_table->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::Fixed);
    header->setSectionResizeMode(0, QHeaderView::Stretch);
    const int digit = m_table->fontMetrics().horizontalAdvance(QLatin1Char('0'));
    for (int section = 1; section < source->columnCount(); ++section) {
        switch (source->columnAt(section)) {
            case BreakdownModel::first:
            case BreakdownModel::last:
                header->resizeSection(section, digit * 13);
                break;
            case BreakdownModel::cost:
                header->resizeSection(section, digit * 12);
                break;
            default:
                header->resizeSection(section, digit * 9);
        }
    }
}

void BreakdownPanel::clearSelection() {
    m_table->clearSelection();
}

void BreakdownPanel::selectionChanged() {
    const Kind kind = shownKind();
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    if (rows.isEmpty() || (kind != Kind::provider && kind != Kind::project)) {
        if (kind == Kind::provider || kind == Kind::project) emit chartFilterChanged(std::nullopt);
        return;
    }
    DailyChart::Filter filter;
    filter.by =
        kind == Kind::provider ? DailyChart::Filter::By::provider : DailyChart::Filter::By::project;
    filter.value = rows.first().data(BreakdownModel::IdRole).toString().toStdString();
    filter.label = rows.first().data(Qt::DisplayRole).toString();
    emit chartFilterChanged(filter);
}

}  // namespace tally
