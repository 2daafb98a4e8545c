// Keeps the questions for the statuses of VMs in order, on the main thread; StatusAsker asks them.
#pragma once

#include "app/kit/BackgroundWork.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

// Many VMs are asked at once, each at most once at a time. One whose supervisor was slow to answer
// is asked after the others.
class StatusPoller : public QObject
{
    Q_OBJECT

public:
    explicit StatusPoller(QObject *parent = nullptr);

    // Asks for a VM's status. While a question is under way, another follows it, however often.
    void ask(const QString &vmid);
    // Asks for the statuses of several and calls `done` once all have been answered, or after a
    // second: then the VMs that were not answered for are in `silent`.
    using Done = std::function<void(const QSet<QString> &silent)>;
    void gather(const QStringList &vmids, Done done);

Q_SIGNALS:
    // "running", "malfunction" or "failed"; null when the VM rests: its stored status holds.
    void statusRead(const QString &vmid, const QString &status);

private:
    struct Question
    {
        bool again = false;
        bool slow = false;
        bool underWay = false;
    };
    struct Gathering
    {
        QSet<QString> missing;
        Done done;
    };

    void answer(const QString &vmid, const QString &status);
    void settle(const QString &vmid);
    void finish(const std::shared_ptr<Gathering> &gathering);

    BackgroundWork m_work;
    QHash<QString, Question> m_questions;
    QList<std::shared_ptr<Gathering>> m_gatherings;
};
