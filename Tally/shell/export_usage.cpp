#include "shell/export_usage.h"

#include "core/store.h"
#include "ledger/usage_export.h"
#include "shell/app_model.h"
#include "shell/dialogs.h"

#include <stdexcept>

namespace tally {

bool exportUsage(const AppModel& model, Dialogs& dialogs, QWidget* parent) {
    const QString csvFilter = QStringLiteral("Comma-separated values (*.csv)");
    const QString jsonFilter = QStringLiteral("JSON (*.json)");
    auto choice = dialogs.askSaveFile(parent, QStringLiteral("Export usage"),
                                      QStringLiteral("tally-usage.csv"), {csvFilter, jsonFilter});
    if (!choice) return false;
    // The name decides when it says; otherwise the format the user picked in the dialog.
    QString path = choice->path;
    bool json = choice->filter == jsonFilter;
    if (path.endsWith(QStringLiteral(".json"), Qt::CaseInsensitive))
        json = true;
    else if (path.endsWith(QStringLiteral(".csv"), Qt::CaseInsensitive))
        json = false;
    else
        path += json ? QStringLiteral(".json") : QStringLiteral(".csv");

    const auto ledger = model.ledger();
    const auto records = model.usageWindow();
    std::string data;
    if (json) {
        try {
            // A line feed ends the file, as it ends `tally --export json`.
            data = usagekit::UsageExport::json(records, ledger->pricing) + "\n";
        } catch (const std::invalid_argument&) {
            data.clear();  // a cost that is not a number: an empty file rather than a broken one
        }
    } else {
        data = usagekit::UsageExport::csv(records, ledger->pricing);
    }
    try {
        usagekit::Store::saveData(data, path.toStdString());
    } catch (const std::exception& error) {
        dialogs.showError(parent, QStringLiteral("Export failed"),
                          QStringLiteral("Tally could not write %1.\n\n%2")
                              .arg(path, QString::fromLocal8Bit(error.what())));
        return false;
    }
    return true;
}

}  // namespace tally
