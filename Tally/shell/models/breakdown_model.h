// One breakdown of the usage window (by provider, model, project, session or kind) as a
// table: label, tokens, calls, cost and billed or seat, plus the first and last time for
// sessions. Display text uses Tally's formats; SortRole gives the raw value so a
// QSortFilterProxyModel sorts numbers as numbers; IdRole gives the slice's id. Rows are
// replaced whole by setSlices(). GUI thread only.
#pragma once

#include "ledger/aggregations.h"
#include "shell/models/usage_digest.h"

#include <QAbstractTableModel>

#include <map>
#include <string>
#include <vector>

namespace tally {

class BreakdownModel : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum class Kind { provider, model, project, session, kind };
    enum Role { SortRole = Qt::UserRole, IdRole, UnpricedRole };
    enum Column { label, first, last, tokens, calls, cost, billing };

    explicit BreakdownModel(Kind kind, QObject* parent = nullptr);

    Kind kind() const { return m_kind; }
    // The slices in the ledger's order; `spans` only for sessions.
    void setSlices(std::vector<usagekit::Slice> slices,
                   std::map<std::string, SessionSpan> spans = {});
    // The column shown at `section` (sessions have first and last; the others skip them).
    Column columnAt(int section) const;
    int sectionOf(Column column) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  private:
    QVariant display(const usagekit::Slice& slice, Column column) const;
    QVariant sortValue(const usagekit::Slice& slice, Column column) const;

    Kind m_kind;
    std::vector<usagekit::Slice> m_slices;
    std::map<std::string, SessionSpan> m_spans;
};

}  // namespace tally
