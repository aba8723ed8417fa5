#include "CliRunner.h"

#include <QRegularExpression>

#include "QVTask.h"

QStringList CliRunner::Run::destinations() const {
    QStringList paths;
    for (const QString& line : output.split(u'\n').filter(QRegularExpression("^Destination: ")))
        paths << line.mid(13);
    return paths;
}

CliRunner::Run CliRunner::run(const QStringList& arguments) {
    QVTask task({QStringLiteral(CARDSWEEP_CLI_PATH), arguments, std::nullopt,
                 QVTask::Channel::Inherit, QVTask::Channel::Pipe, QVTask::Channel::Pipe});
    task.launch();
    QByteArray output;
    for (QByteArray piece = task.readOutput(); !piece.isEmpty(); piece = task.readOutput())
        output += piece;
    for (QByteArray piece = task.readError(); !piece.isEmpty(); piece = task.readError())
        output += piece;
    task.waitUntilExit();
    return {task.terminationStatus(), QString::fromUtf8(output)};
}
