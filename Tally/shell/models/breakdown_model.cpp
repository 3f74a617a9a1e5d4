#include "shell/models/breakdown_model.h"

#include "ledger/fmt.h"
#include "shell/theme.h"
#include "shell/ui_text.h"

#include <QDateTime>

namespace tally {

using namespace usagekit;

namespace {

// "3 Mar 14:05" in local time: enough to tell a session's start from its end.
QString shortTime(Date date) {
    return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(date.secondsSince1970))
        .toString(QStringLiteral("d MMM HH:mm"));
}

// Labels read from the left, figures line up on the right, the one-word billing mark sits
// in the middle of its column.
Qt::Alignment alignment(BreakdownModel::Column column) {
    if (column == BreakdownModel::label) return Qt::AlignLeft | Qt::AlignVCenter;
    if (column == BreakdownModel::billing) return Qt::AlignHCenter | Qt::AlignVCenter;
    return Qt::AlignRight | Qt::AlignVCenter;
}

}  // namespace

BreakdownModel::BreakdownModel(Kind kind, QObject* parent)
    : QAbstractTableModel(parent), m_kind(kind) {}

void BreakdownModel::setSlices(std::vector<Slice> slices,
                               std::map<std::string, SessionSpan> spans) {
    beginResetModel();
    m_slices = std::move(slices);
    m_spans = std::move(spans);
    endResetModel();
}

BreakdownModel::Column BreakdownModel::columnAt(int section) const {
    if (m_kind == Kind::session) return static_cast<Column>(section);
    return section == 0 ? label : static_cast<Column>(section + 2);
}

int BreakdownModel::sectionOf(Column column) const {
    if (m_kind == Kind::session) return column;
    return column == label ? 0 : column - 2;
}

int BreakdownModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_slices.size());
}

int BreakdownModel::columnCount(const QModelIndex& parent) const {
    if (parent.isValid()) return 0;
    return m_kind == Kind::session ? 7 : 5;
}

QVariant BreakdownModel::display(const Slice& slice, Column column) const {
    switch (column) {
        case label:
            return toQt(slice.label.empty() ? std::string("(none)") : slice.label);
        case first:
        case last: {
            auto span = m_spans.find(slice.id);
            if (span == m_spans.end()) return {};
            return shortTime(column == first ? span->second.first : span->second.last);
        }
        case tokens:
            return toQt(Fmt::tokens(slice.tokens));
        case calls:
            return toQt(Fmt::n(slice.calls));
        case cost:
            return toQt(Fmt::cents(slice.costUSD));
        case billing:
            return slice.metered ? QStringLiteral("billed") : QStringLiteral("seat");
    }
    return {};
}

QVariant BreakdownModel::sortValue(const Slice& slice, Column column) const {
    switch (column) {
        case label:
            return toQt(slice.label).toLower();
        case first:
        case last: {
            auto span = m_spans.find(slice.id);
            if (span == m_spans.end()) return 0.0;
            return (column == first ? span->second.first : span->second.last).secondsSince1970;
        }
        case tokens:
            return QVariant::fromValue<qlonglong>(slice.tokens);
        case calls:
            return QVariant::fromValue<qlonglong>(slice.calls);
        case cost:
            return slice.costUSD;
        case billing:
            return slice.metered;
    }
    return {};
}

QVariant BreakdownModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) return {};
    const Slice& slice = m_slices[static_cast<size_t>(index.row())];
    const Column column = columnAt(index.column());
    switch (role) {
        case Qt::DisplayRole:
            return display(slice, column);
        case SortRole:
            return sortValue(slice, column);
        case IdRole:
            return toQt(slice.id);
        case UnpricedRole:
            return slice.unpriced;
        case Qt::TextAlignmentRole:
            return QVariant::fromValue(alignment(column));
        case Qt::ForegroundRole:
            if (slice.unpriced && (column == label || column == cost)) return Theme::accent();
            return {};
        case Qt::ToolTipRole:
            if (column == tokens) return toQt(Fmt::n(slice.tokens) + " tokens");
            if (slice.unpriced && (column == label || column == cost))
                return QStringLiteral(
                    "Some of these records have no rate: they count as $0 until pricing.json "
                    "gives their model one.");
            if (column == label) return toQt(slice.label);
            return {};
    }
    return {};
}

QVariant BreakdownModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal) return {};
    const Column column = columnAt(section);
    if (role == Qt::TextAlignmentRole) return QVariant::fromValue(alignment(column));
    if (role != Qt::DisplayRole) return {};
    switch (column) {
        case label:
            switch (m_kind) {
                case Kind::provider:
                    return QStringLiteral("Provider");
                case Kind::model:
                    return QStringLiteral("Model");
                case Kind::project:
                    return QStringLiteral("Project");
                case Kind::session:
                    return QStringLiteral("Session");
                case Kind::kind:
                    return QStringLiteral("Kind");
            }
            return {};
        case first:
            return QStringLiteral("First");
        case last:
            return QStringLiteral("Last");
        case tokens:
            return QStringLiteral("Tokens");
        case calls:
            return QStringLiteral("Calls");
        case cost:
            return QStringLiteral("Cost");
        case billing:
            return QStringLiteral("Billing");
    }
    return {};
}

}  // namespace tally
