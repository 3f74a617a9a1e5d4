// Homes with usage for the dashboard suites, and the built `tally` run on the same home,
// so a test can set what the desktop shows beside what the terminal prints.
#pragma once

#include "shell/app_model.h"
#include "support/shell_fixture.h"

#include <QByteArray>
#include <QStringList>

#include <memory>

namespace tally::testing {

// One Claude Code request line dated `daysAgo` days before now.
QByteArray claudeLine(const char* session, const char* request, const char* project,
                      const char* model, double daysAgo, int input, int output, int cacheRead);

// Claude Code, Codex and Gemini fixture logs, one Grok session with a reported cost, and a
// Claude log of a model that has no rate.
void fillFixtureHome(const ScratchHome& home);
// A demo home of every local tool, dated up to today (make_corpus, 4 MB).
void fillDemoHome(const ScratchHome& home);

// `tally <arguments>` on the current HOME and support directory; its standard output.
QByteArray runTally(const QStringList& arguments);

// A model that scans the local logs for real, never the network, whose clock reads `*now`
// (when given) instead of the system's, and that posts to `notifier` (when given).
std::unique_ptr<AppModel> localModel(const usagekit::Date* now = nullptr,
                                     usagekit::Notifier* notifier = nullptr);
// Runs the model's local scan and waits for its publication.
bool scanAndWait(AppModel& model);

}  // namespace tally::testing
