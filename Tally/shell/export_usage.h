// Export from the dashboard: a save dialog offering CSV and JSON with "tally-usage.csv"
// prefilled, then the usage window's records written atomically in the chosen format (the
// ledger's pricing gives each record its cost). A failed write is reported in a message
// box; a cancelled dialog does nothing. GUI thread only; blocks while the file is written.
#pragma once

class QWidget;

namespace tally {

class AppModel;
class Dialogs;

// True when a file was written.
bool exportUsage(const AppModel& model, Dialogs& dialogs, QWidget* parent);

}  // namespace tally
