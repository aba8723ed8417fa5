#pragma once
// The link to the editing application. There is no event transport to it here: an xmeml
// document is written beside the project as "VOLUME Clips.xml" and handed to the program
// named in the setting `editingApplication`; the operations that would query the
// application answer nil / false with their log lines. The xmeml version follows the
// setting `editingApplicationVersion`.
//
// Thread-safety: as safe as the SettingsStore and launcher it is given.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

#include "SettingsStore.h"

class ProcessRunner;

class QVAppleEvents {
  public:
    /// Starts `program` with `arguments` without waiting; false when it could not start.

    /// The editing application is started through processes.
    QVAppleEvents(const SettingsStore& settings, ProcessRunner& processes);

    /// Writes the escaped document as "VOLUME Clips.xml" (just "Clips.xml" without a volume
    /// name) beside the project, or in the Documents folder when the project path is empty
    /// or names no file, then hands that file to the editing application, if one is set.
    /// True once the file is written; a program that cannot be started is only logged.
    bool sendXMLToFCP(const QString& xml, const QString& projectPath = QString(),
                      const QString& volumeName = QString()) const;
    /// Where sendXMLToFCP writes for that project and volume.
    static QString clipsFilePath(const QString& projectPath, const QString& volumeName);

    /// nullopt: the application is never reachable here ("Error: Final Cut Pro is not
    /// running." is logged).
    std::optional<QStringList> listOfOpenFCPProjects() const;
    /// nullopt (asked to launch, the failure to communicate is logged).
    std::optional<QByteArray> getProjectXMLData(const QString& projectPath, bool launchFCP = false,
                                                bool closeProject = false) const;
    std::optional<QString> getProjectXML(const QString& projectPath, bool launchFCP = false,
                                         bool closeProject = false) const;
    std::optional<QByteArray> getItemXMLData(const QString& item, const QString& projectPath,
                                             bool launchFCP = false,
                                             bool closeProject = false) const;
    std::optional<QString> getItemXML(const QString& item, const QString& projectPath,
                                      bool launchFCP = false, bool closeProject = false) const;
    std::optional<QByteArray> getTOCData(const QString& projectPath, bool launchFCP = false) const;
    std::optional<QString> getTOC(const QString& projectPath, bool launchFCP = false) const;
    /// The project's sequences (see sequencesInDocument) as fetched from the application,
    /// so nullopt here.
    std::optional<QStringList> sequencesInProject(const QString& projectPath) const;
    /// Every sequence element that has a name child (".//sequence/name[1]/.."), each as its
    /// own XML text; nullopt for empty data or a document that does not parse ("Error: %@"
    /// on standard error).
    static std::optional<QStringList> sequencesInDocument(const QByteArray& document);
    bool openItem(const QString& item, const QString& projectPath, bool launchFCP = false) const;
    bool saveProject(const QString& projectPath) const;
    bool closeProject(const QString& projectPath, bool saveChanges) const;
    bool isFCPRunning() const { return false; }

    /// The setting `editingApplicationVersion`, "7.0" when it is unset or empty.
    QString finalCutProVersionString() const;
    int finalCutProMajorVersion() const;
    int maximumXMEMLVersion() const;
    /// The first character's value for two or more characters (so "10.1" gives 1), the
    /// text's value for one, 7 for none.
    static int majorVersionFromString(const QString& version);
    /// Below 5: 1; 5.1.0 and 5.1.1: 2; other 5.x: 3; 6.x: 4; 7 and above: 5.
    static int xmemlVersionFromString(const QString& version);

    /// CR as "&#13;", every UTF-16 unit of 160 or more as "&#N;"; markup stays as it is.
    static QString escapeCharactersInXMLString(const QString& string);
    /// The data without one trailing zero byte.
    static QByteArray formatData(const QByteArray& data);
    /// A new random UUID in its standard upper-case form.
    static QString generateUUID();

  private:
    std::optional<QByteArray> fetch(bool launchFCP) const;
    bool handToEditingApplication(const QString& file) const;

    const SettingsStore& settings_;
    ProcessRunner& processes_;
};
