// Runs blocking work (Secret Service calls, file writes) on Qt's global thread pool and
// hands the result back on the GUI thread, unless `context` is gone by then: the watcher
// that delivers it is `context`'s child and dies with it. `work` must not touch widgets.
#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QPromise>
#include <QThreadPool>

#include <memory>
#include <utility>

namespace tally {

template <class Work, class Done>
void runOffThread(QObject* context, Work work, Done done) {
    using Result = decltype(work());
    auto* watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcher<Result>::finished, context,
                     [watcher, done = std::move(done)]() mutable {
                         watcher->deleteLater();
                         if (watcher->future().resultCount() > 0) done(watcher->result());
                     });
    // The pool takes copyable tasks only; the promise is move-only.
    auto promise = std::make_shared<QPromise<Result>>();
    watcher->setFuture(promise->future());
    QThreadPool::globalInstance()->start([promise, work = std::move(work)]() mutable {
        promise->start();
        promise->addResult(work());
        promise->finish();
    });
}

}  // namespace tally
