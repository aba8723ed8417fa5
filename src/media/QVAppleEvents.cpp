#include "QVAppleEvents.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUuid>
#include <cstdio>
#include <exception>
#include <pugixml.hpp>
#include <sstream>

#include "ProcessRunner.h"
#include "QVException.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "SettingsKeys.h"
#include "TextValues.h"

namespace {

const QString kDefaultVersion = QStringLiteral("7.0");
constexpr int kFirstEscapedUnit = 160;
constexpr char16_t kCarriageReturn = 13;

void logNotRunning() {
    QVLog::appendLog(u"Error: Final Cut Pro is not running.");
}

// Runs one operation of the link; an exception is logged under the operation's name and
// gives its failure value.
template <typename Result, typename Body>
Result guarded(const char* method, Result failure, Body&& body) {
    try {
        return body();
    } catch (const std::exception& exception) {
        QVException::logException(exception, method);
        return failure;
    }
}

std::optional<QString> decoded(const std::optional<QByteArray>& data) {
    return data ? std::optional<QString>(QString::fromUtf8(*data)) : std::nullopt;
}

// Every sequence element that has a name, each as its own text; a parse or query error
// is printed and gives nothing.
std::optional<QStringList> sequenceTexts(const QByteArray& data) {
    pugi::xml_document document;
    const pugi::xml_parse_result parsed =
        document.load_buffer(data.constData(), static_cast<size_t>(data.size()));
    if (!parsed) {
        std::fprintf(stderr, "Error: %s\n", parsed.description());
        return std::nullopt;
    }
    try {
        QStringList sequences;
        for (const pugi::xpath_node& node : document.select_nodes(".//sequence/name[1]/..")) {
            std::ostringstream text;
            node.node().print(text, "", pugi::format_raw);
            sequences << QString::fromStdString(text.str());
        }
        return sequences;
    } catch (const pugi::xpath_exception& exception) {
        std::fprintf(stderr, "Error: %s\n", exception.what());
        return std::nullopt;
    }
}

// Where a program named in a setting lives: a path as it is, a bare name through PATH.
QString resolveProgram(const QString& program) {
    if (program.contains(u'/'))
        return program;
    return QStandardPaths::findExecutable(program);
}

}  // namespace

QVAppleEvents::QVAppleEvents(const SettingsStore& settings, ProcessRunner& processes)
    : settings_(settings), processes_(processes) {}

QString QVAppleEvents::clipsFilePath(const QString& projectPath, const QString& volumeName) {
    const QFileInfo project(projectPath);
    const QString folder = !projectPath.isEmpty() && project.isFile()
                               ? project.absolutePath()
                               : QVLocalPaths::documentDirectory(true);
    const QString name = volumeName.isEmpty() ? QStringLiteral("Clips.xml")
                                              : volumeName + QStringLiteral(" Clips.xml");
    return QDir(folder).filePath(name);
}

bool QVAppleEvents::sendXMLToFCP(const QString& xml, const QString& projectPath,
                                 const QString& volumeName) const {
    return guarded("+[QVAppleEvents sendXMLToFCP:projectPath:]", false, [&] {
        const QString path = clipsFilePath(projectPath, volumeName);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QSaveFile file(path);
        const QByteArray bytes = escapeCharactersInXMLString(xml).toUtf8();
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() ||
            !file.commit()) {
            QVLog::appendLog(u"Error writing XML to %@: %@", path, file.errorString());
            return false;
        }
        handToEditingApplication(path);
        return true;
    });
}

bool QVAppleEvents::handToEditingApplication(const QString& file) const {
    const QString program = settings_.get(SettingsKey::editingApplication).trimmed();
    if (program.isEmpty())
        return true;
    const QString resolved = resolveProgram(program);
    if (resolved.isEmpty()) {
        QVLog::appendLog(u"Error: editing application %@ not found.", program);
        return false;
    }
    if (!processes_.start(resolved, QStringList{file})) {
        QVLog::appendLog(u"Error: could not start editing application %@.", resolved);
        return false;
    }
    return true;
}

std::optional<QStringList> QVAppleEvents::listOfOpenFCPProjects() const {
    return guarded("+[QVAppleEvents listOfOpenFCPProjects]", std::optional<QStringList>(), [] {
        logNotRunning();
        return std::optional<QStringList>();
    });
}

std::optional<QByteArray> QVAppleEvents::fetch(bool launchFCP) const {
    // Not running and not to be launched: nothing to ask, nothing to say.
    if (!launchFCP)
        return std::nullopt;
    QVLog::appendLog(u"Unable to communicate with Final Cut Pro. Please make sure it is running.");
    return std::nullopt;
}

std::optional<QByteArray> QVAppleEvents::getProjectXMLData(const QString&, bool launchFCP,
                                                           bool) const {
    return guarded("+[QVAppleEvents getProjectXMLData:launchFCP:closeProject:]",
                   std::optional<QByteArray>(), [&] { return fetch(launchFCP); });
}

std::optional<QString> QVAppleEvents::getProjectXML(const QString& projectPath, bool launchFCP,
                                                    bool closeProject) const {
    return guarded(
        "+[QVAppleEvents getProjectXML:launchFCP:closeProject:]", std::optional<QString>(),
        [&] { return decoded(getProjectXMLData(projectPath, launchFCP, closeProject)); });
}

std::optional<QByteArray> QVAppleEvents::getItemXMLData(const QString&, const QString&,
                                                        bool launchFCP, bool) const {
    return guarded("+[QVAppleEvents getItemXMLData:forProject:launchFCP:closeProject:]",
                   std::optional<QByteArray>(), [&] { return fetch(launchFCP); });
}

std::optional<QString> QVAppleEvents::getItemXML(const QString& item, const QString& projectPath,
                                                 bool launchFCP, bool closeProject) const {
    return guarded(
        "+[QVAppleEvents getItemXML:forProject:launchFCP:closeProject:]", std::optional<QString>(),
        [&] { return decoded(getItemXMLData(item, projectPath, launchFCP, closeProject)); });
}

std::optional<QByteArray> QVAppleEvents::getTOCData(const QString&, bool launchFCP) const {
    return guarded("+[QVAppleEvents getTOCData:launchFCP:]", std::optional<QByteArray>(),
                   [&] { return fetch(launchFCP); });
}

std::optional<QString> QVAppleEvents::getTOC(const QString& projectPath, bool launchFCP) const {
    return guarded("+[QVAppleEvents getTOC:launchFCP:]", std::optional<QString>(),
                   [&] { return decoded(getTOCData(projectPath, launchFCP)); });
}

std::optional<QStringList> QVAppleEvents::sequencesInProject(const QString& projectPath) const {
    return guarded("+[QVAppleEvents sequencesInProject:]", std::optional<QStringList>(), [&] {
        const auto data = finalCutProMajorVersion() > 6 ? getTOCData(projectPath, true)
                                                        : getProjectXMLData(projectPath, true);
        return data ? sequencesInDocument(*data) : std::nullopt;
    });
}

std::optional<QStringList> QVAppleEvents::sequencesInDocument(const QByteArray& document) {
    if (document.isEmpty())
        return std::nullopt;
    return guarded("+[QVAppleEvents sequencesInProject:]", std::optional<QStringList>(),
                   [&] { return sequenceTexts(document); });
}

bool QVAppleEvents::openItem(const QString&, const QString&, bool launchFCP) const {
    return guarded("+[QVAppleEvents openItem:forProject:launchFCP:]", false,
                   [&] { return fetch(launchFCP).has_value(); });
}

bool QVAppleEvents::saveProject(const QString&) const {
    return guarded("+[QVAppleEvents saveProject:]", false, [] {
        logNotRunning();
        return false;
    });
}

bool QVAppleEvents::closeProject(const QString&, bool) const {
    return guarded("+[QVAppleEvents closeProject:saveChanges:]", false, [] {
        logNotRunning();
        return false;
    });
}

QString QVAppleEvents::finalCutProVersionString() const {
    const QString version = settings_.get(SettingsKey::editingApplicationVersion).trimmed();
    return version.isEmpty() ? kDefaultVersion : version;
}

int QVAppleEvents::finalCutProMajorVersion() const {
    return majorVersionFromString(finalCutProVersionString());
}

int QVAppleEvents::maximumXMEMLVersion() const {
    return xmemlVersionFromString(finalCutProVersionString());
}

int QVAppleEvents::majorVersionFromString(const QString& version) {
    if (version.isEmpty())
        return 7;
    // Only the first character counts, even for a two-digit major version.
    return TextValues::intValue(QStringView(version).left(1));
}

int QVAppleEvents::xmemlVersionFromString(const QString& version) {
    QStringList parts = version.split(u'.');
    while (parts.size() < 3)
        parts << QStringLiteral("0");
    const int major = TextValues::intValue(parts[0]);
    const int minor = TextValues::intValue(parts[1]);
    const int patch = TextValues::intValue(parts[2]);
    if (major < 5)
        return 1;
    if (major == 5)
        return minor == 1 && (patch == 0 || patch == 1) ? 2 : 3;
    if (major == 6)
        return 4;
    return 5;
}

QString QVAppleEvents::escapeCharactersInXMLString(const QString& string) {
    QString escaped;
    escaped.reserve(string.size());
    for (const QChar unit : string) {
        if (unit.unicode() == kCarriageReturn)
            escaped += QStringLiteral("&#13;");
        else if (unit.unicode() < kFirstEscapedUnit)
            escaped += unit;
        else
            escaped += QStringLiteral("&#%1;").arg(unit.unicode());
    }
    return escaped;
}

QByteArray QVAppleEvents::formatData(const QByteArray& data) {
    if (!data.isEmpty() && data.back() == '\0')
        return data.left(data.size() - 1);
    return data;
}

QString QVAppleEvents::generateUUID() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}
