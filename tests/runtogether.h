#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <functional>
#include <memory>
#include <vector>

/// Runs the functions side by side while this thread, the hub's, delivers. False when one does not end.
inline bool runTogether(const std::vector<std::function<void()>>& functions)
{
    std::vector<std::unique_ptr<QThread>> threads;
    for (const auto& function : functions) {
        threads.emplace_back(QThread::create(function));
        threads.back()->start();
    }
    QElapsedTimer timer;
    timer.start();
    for (const auto& thread : threads)
        while (!thread->wait(1)) {
            QCoreApplication::processEvents();
            if (timer.elapsed() > 50000)
                qFatal("The threads hang");
        }
    QCoreApplication::processEvents();
    return true;
}
