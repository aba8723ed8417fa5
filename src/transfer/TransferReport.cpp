#include "TransferReport.h"

#include <QUrl>

#include "AscMhlHistory.h"
#include "CardFiles.h"
#include "ChecksumManifest.h"
#include "PathText.h"
#include "QVFileManager.h"

namespace {

QString escaped(const QString& text) {
    return text.toHtmlEscaped();
}

QString row(const QString& label, const QString& value) {
    return QStringLiteral("<tr><th>%1</th><td>%2</td></tr>\n").arg(escaped(label), escaped(value));
}

QString when(const QDateTime& date) {
    return date.isValid() ? date.toLocalTime().toString(Qt::ISODate)
                          : QStringLiteral("not recorded");
}

QString speed(const TransferReport::Content& content, std::uint64_t bytes) {
    if (!content.start.isValid() || !content.end.isValid())
        return QStringLiteral("not recorded");
    const double seconds = double(content.start.msecsTo(content.end)) / 1000.0;
    if (seconds <= 0)
        return QStringLiteral("-");
    return QVFileManager::formatFileSize(double(bytes) / seconds) + QStringLiteral("/s over ") +
           QString::number(seconds, 'f', 1) + QStringLiteral(" s");
}

constexpr const char* kStyle =
    "body{font:14px/1.4 sans-serif;margin:2em;color:#111}"
    "h1{font-size:20px}h2{font-size:16px;margin-top:1.6em}"
    "table{border-collapse:collapse;margin-top:.4em}"
    "th,td{border:1px solid #bbb;padding:3px 8px;text-align:left;vertical-align:top}"
    "th{background:#eee}td.n{text-align:right}code{font-size:12px}"
    ".ok{color:#060;font-weight:bold}.bad{color:#a00;font-weight:bold}"
    "@media print{body{margin:0}}";

}  // namespace

void TransferReport::write(const Content& content, const Output& out) {
    std::uint64_t count = 0;
    std::uint64_t bytes = 0;
    if (content.files)
        content.files([&](const File& file) {
            ++count;
            bytes += file.size;
        });
    QString page;
    page += QStringLiteral("<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\">\n<title>");
    page += escaped(QStringLiteral("Transfer report: ") + content.card.name);
    page += QStringLiteral("</title>\n<style>") + QLatin1String(kStyle) +
            QStringLiteral("</style></head><body>\n<h1>");
    page += escaped(QStringLiteral("Transfer report: ") + content.card.name) +
            QStringLiteral("</h1>\n<table>\n");
    page += row(QStringLiteral("Card"), content.card.name);
    page += row(QStringLiteral("Format"), content.card.format);
    page += row(QStringLiteral("Size on the card"),
                content.card.bytes ? QVFileManager::formatFileSize(double(content.card.bytes))
                                   : QStringLiteral("not recorded"));
    page += row(QStringLiteral("Device"), content.card.device.isEmpty()
                                              ? QStringLiteral("a folder, not a device")
                                              : content.card.device);
    page += row(QStringLiteral("File system"), content.card.fileSystem.isEmpty()
                                                   ? QStringLiteral("not known")
                                                   : content.card.fileSystem);
    page += row(QStringLiteral("Digest"), content.digest);
    page += row(QStringLiteral("Checked"), content.checkedHow);
    page += row(QStringLiteral("Started"), when(content.start));
    page += row(QStringLiteral("Ended"), when(content.end));
    page += row(QStringLiteral("Copied"), QStringLiteral("%1 files, %2")
                                              .arg(count)
                                              .arg(QVFileManager::formatFileSize(double(bytes))));
    page += row(QStringLiteral("Speed"), speed(content, bytes));
    page += QStringLiteral(
        "</table>\n<h2>Destinations</h2>\n<table>\n"
        "<tr><th>Folder</th><th>Verdict</th></tr>\n");
    for (const Destination& destination : content.destinations)
        page += QStringLiteral("<tr><td>%1</td><td class=\"%2\">%3</td></tr>\n")
                    .arg(escaped(destination.path),
                         destination.complete ? QStringLiteral("ok") : QStringLiteral("bad"),
                         escaped(destination.verdict));
    page += QStringLiteral("</table>\n");
    if (!content.failures.isEmpty()) {
        page += QStringLiteral("<h2>Failures</h2>\n<ul>\n");
        for (const QString& failure : content.failures)
            page +=
                QStringLiteral("<li class=\"bad\">") + escaped(failure) + QStringLiteral("</li>\n");
        page += QStringLiteral("</ul>\n");
    }
    if (!content.metadata.empty()) {
        page += QStringLiteral("<h2>Metadata</h2>\n<table>\n");
        for (const auto& [field, value] : content.metadata)
            page += row(field, value);
        page += QStringLiteral("</table>\n");
    }
    page += QStringLiteral("<h2>Files</h2>\n<table>\n<tr><th>File</th><th>Size</th><th>");
    page += escaped(content.digest) + QStringLiteral("</th></tr>\n");
    out(page.toUtf8());
    // The file list goes out in pieces: it is most of the page.
    QByteArray rows;
    if (content.files)
        content.files([&](const File& file) {
            rows += "<tr><td>" + escaped(file.path).toUtf8() + "</td><td class=\"n\">" +
                    QByteArray::number(file.size) + "</td><td><code>" + file.digest +
                    "</code></td></tr>\n";
            if (rows.size() >= (1 << 20)) {
                out(rows);
                rows.clear();
            }
        });
    out(rows + "</table>\n</body></html>\n");
}

QByteArray TransferReport::html(const Content& content) {
    QByteArray page;
    write(content, [&](const QByteArray& piece) { page += piece; });
    return page;
}

// "key=value" pairs, percent-encoded, so any card name survives the round trip.
QString TransferReport::cardRecord(const Card& card, const QDateTime& start, const QDateTime& end) {
    const auto pair = [](const char* key, const QString& value) {
        return QLatin1String(key) + u'=' + QString::fromLatin1(QUrl::toPercentEncoding(value));
    };
    return QStringList{QStringLiteral("Cardsweep transfer"),
                       pair("card", card.name),
                       pair("format", card.format),
                       pair("bytes", QString::number(card.bytes)),
                       pair("device", card.device),
                       pair("filesystem", card.fileSystem),
                       pair("start", start.toUTC().toString(Qt::ISODateWithMs)),
                       pair("end", end.toUTC().toString(Qt::ISODateWithMs))}
        .join(u' ');
}

void TransferReport::readCardRecord(const QString& record, Content* content) {
    for (const QString& pair : record.split(u' ', Qt::SkipEmptyParts)) {
        const qsizetype equals = pair.indexOf(u'=');
        if (equals < 0)
            continue;
        const QString key = pair.left(equals);
        const QString value = QUrl::fromPercentEncoding(pair.mid(equals + 1).toLatin1());
        if (key == QLatin1String("card"))
            content->card.name = value;
        else if (key == QLatin1String("format"))
            content->card.format = value;
        else if (key == QLatin1String("bytes"))
            content->card.bytes = value.toULongLong();
        else if (key == QLatin1String("device"))
            content->card.device = value;
        else if (key == QLatin1String("filesystem"))
            content->card.fileSystem = value;
        else if (key == QLatin1String("start"))
            content->start = QDateTime::fromString(value, Qt::ISODateWithMs);
        else if (key == QLatin1String("end"))
            content->end = QDateTime::fromString(value, Qt::ISODateWithMs);
    }
}

Result<TransferReport::Content> TransferReport::fromFolder(FileLayer& layer,
                                                           const QByteArray& folder) {
    const AscMhlHistory history = AscMhlHistory::load(layer, folder);
    const AscMhlHistory::Generation* transfer = nullptr;
    for (const AscMhlHistory::Generation& generation : history.generations()) {
        if (generation.process == QLatin1String("transfer"))
            transfer = &generation;
    }
    if (!transfer) {
        if (!history.problem().ok())
            return history.problem();
        return Status::failure(QStringLiteral("no ASC MHL history of a transfer in this folder"));
    }
    Content content;
    content.unreadable = history.problem();
    readCardRecord(transfer->comment, &content);
    auto entries = std::make_shared<std::vector<AscMhlHistory::Entry>>();
    for (const AscMhlHistory::Entry& entry : transfer->entries) {
        if (entry.hashes.empty() || entry.path == CardFiles::kReport)
            continue;
        content.digest = DigestContext::name(entry.hashes.front().kind);
        entries->push_back(entry);
    }
    content.files = [entries](const FileSink& sink) {
        for (const AscMhlHistory::Entry& entry : *entries)
            sink({QString::fromUtf8(entry.path), entry.size, entry.hashes.front().hex.toLatin1()});
    };
    content.checkedHow = QStringLiteral("read back from the media when the copy was made");
    content.destinations.push_back({PathText::display(folder),
                                    QStringLiteral("complete and verified, as its history records"),
                                    true});
    return content;
}
