#include "QVVolume.h"

#include <sys/stat.h>

#include <QFile>
#include <QFileInfo>

#include "CardFiles.h"
#include "DiskInformation.h"
#include "FileLayer.h"
#include "MetadataNaming.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "SettingsStore.h"

namespace {

// A folder's entries by name, in listing order; none when it can't be listed.
QStringList entryNames(FileLayer& files, const QString& folder) {
    std::vector<FileLayer::Entry> entries;
    if (files.listFolder(QFile::encodeName(folder), &entries) != 0)
        return {};
    QStringList names;
    for (const FileLayer::Entry& entry : entries)
        names << QFile::decodeName(entry.name);
    return names;
}

template <typename T>
T locked(std::mutex& mutex, const T& field) {
    const std::lock_guard lock(mutex);
    return field;
}

template <typename T>
void assign(std::mutex& mutex, T& field, const T& value) {
    const std::lock_guard lock(mutex);
    field = value;
}

// System litter at the top of a card that a transfer leaves out of its total.
bool isLitter(const QString& name) {
    return CardFiles::isSystemLitter(QFile::encodeName(name));
}

constexpr quint32 kMovieTypeCode = 0x4D6F6F56;  // 'MooV'

}  // namespace

std::shared_ptr<QVVolume> QVVolume::volumeWithName(const QString& name, const QString& path,
                                                   int type, SettingsStore& settings,
                                                   std::shared_ptr<const Clock> clock) {
    auto volume = std::make_shared<QVVolume>(std::move(clock));
    volume->setName(name);
    volume->setPath(path);
    volume->setType(type);
    volume->setStatus(type == -1 ? Unrecognised : Idle);
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) == 0)
        volume->setSourceDevice(quint64(status.st_dev));
    volume->populateDefaultMetadata(settings);
    return volume;
}

QVVolume::QVVolume(std::shared_ptr<const Clock> clock)
    : clock_(std::move(clock)), timeEstimate_(clock_) {
    spinner_.indeterminate = true;
    spinner_.animating = true;
    progressBar_.animating = true;
}

QString QVVolume::name() const {
    return locked(mutex_, name_);
}
void QVVolume::setName(const QString& name) {
    assign(mutex_, name_, name);
}
QString QVVolume::path() const {
    return locked(mutex_, path_);
}
void QVVolume::setPath(const QString& path) {
    assign(mutex_, path_, path);
}
qint64 QVVolume::type() const {
    return locked(mutex_, type_);
}
void QVVolume::setType(qint64 type) {
    assign(mutex_, type_, type);
}
QVVolume::ProgressIndicator QVVolume::spinner() const {
    return locked(mutex_, spinner_);
}
QVVolume::ProgressIndicator QVVolume::progressBar() const {
    return locked(mutex_, progressBar_);
}
std::optional<QString> QVVolume::errorString() const {
    return locked(mutex_, errorString_);
}
void QVVolume::setErrorString(const std::optional<QString>& error) {
    assign(mutex_, errorString_, error);
}
QStringList QVVolume::destinations() const {
    return locked(mutex_, destinations_);
}
void QVVolume::setDestinations(const QStringList& destinations) {
    assign(mutex_, destinations_, destinations);
}
std::optional<QStringList> QVVolume::outputs() const {
    return locked(mutex_, outputs_);
}
void QVVolume::setOutputs(const std::optional<QStringList>& outputs) {
    assign(mutex_, outputs_, outputs);
}
QVVolume::ChecksumMap QVVolume::sourceChecksumDict() const {
    return locked(mutex_, sourceChecksumDict_);
}
void QVVolume::setSourceChecksumDict(const ChecksumMap& checksums) {
    assign(mutex_, sourceChecksumDict_, checksums);
}
std::vector<QVVolume::ChecksumMap> QVVolume::destChecksums() const {
    const std::shared_ptr<TransferLedger> record = ledger();
    std::vector<ChecksumMap> digests;
    for (std::size_t d = 0; record && d < record->destinationCount(); ++d)
        digests.push_back(record->digestsByName(d));
    return digests;
}
std::shared_ptr<TransferLedger> QVVolume::ledger() const {
    return locked(mutex_, ledger_);
}
void QVVolume::setLedger(std::shared_ptr<TransferLedger> ledger) {
    const std::lock_guard lock(mutex_);
    ledger_ = std::move(ledger);
}
std::shared_ptr<const TransferOptions> QVVolume::transferOptions() const {
    return locked(mutex_, options_);
}
void QVVolume::setTransferOptions(std::shared_ptr<const TransferOptions> options) {
    const std::lock_guard lock(mutex_);
    options_ = std::move(options);
}
quint64 QVVolume::sourceDevice() const {
    return locked(mutex_, sourceDevice_);
}
void QVVolume::setSourceDevice(quint64 device) {
    assign(mutex_, sourceDevice_, device);
}
std::optional<QDateTime> QVVolume::lastProgressUpdate() const {
    return locked(mutex_, lastProgressUpdate_);
}
void QVVolume::setLastProgressUpdate(const std::optional<QDateTime>& date) {
    assign(mutex_, lastProgressUpdate_, date);
}
bool QVVolume::isFolder() const {
    return locked(mutex_, isFolder_);
}
void QVVolume::setIsFolder(bool isFolder) {
    assign(mutex_, isFolder_, isFolder);
}
QVVolume::MetadataValues QVVolume::metadata() const {
    return locked(mutex_, metadata_);
}
void QVVolume::setMetadata(const MetadataValues& metadata) {
    assign(mutex_, metadata_, metadata);
}
bool QVVolume::hasQTMovies() const {
    return locked(mutex_, hasQTMovies_);
}
void QVVolume::setHasQTMovies(bool has) {
    assign(mutex_, hasQTMovies_, has);
}
std::optional<QStringList> QVVolume::qtMoviePaths() const {
    return locked(mutex_, qtMoviePaths_);
}
void QVVolume::setQtMoviePaths(const std::optional<QStringList>& paths) {
    assign(mutex_, qtMoviePaths_, paths);
}
std::vector<std::shared_ptr<CopyInfo>> QVVolume::failedFiles() const {
    return locked(mutex_, failedFiles_);
}
void QVVolume::setFailedFiles(const std::vector<std::shared_ptr<CopyInfo>>& files) {
    assign(mutex_, failedFiles_, files);
}
std::vector<std::shared_ptr<CopyInfo>> QVVolume::failedFilesFrom(std::size_t index) const {
    const std::lock_guard lock(mutex_);
    if (index >= failedFiles_.size())
        return {};
    return {failedFiles_.begin() + std::ptrdiff_t(index), failedFiles_.end()};
}
void QVVolume::addFailedFile(const std::shared_ptr<CopyInfo>& file) {
    const std::lock_guard lock(mutex_);
    failedFiles_.push_back(file);
}

TransferChecks QVVolume::transferChecks() const {
    return locked(mutex_, checks_);
}
void QVVolume::startTransferChecks(bool sizes, bool checksums, bool fromMedium) {
    assign(mutex_, checks_, TransferChecks{true, sizes, checksums, fromMedium && checksums});
}
void QVVolume::endTransferChecks(bool completeAndVerified) {
    const std::lock_guard lock(mutex_);
    checks_.ended = true;
    checks_.completeAndVerified =
        completeAndVerified && checks_.started && checks_.checksums && checks_.fromMedium;
}

void QVVolume::addDestination(const QString& path) {
    const std::lock_guard lock(mutex_);
    destinations_.append(path);
}

void QVVolume::reset() {
    resetProgress();
    {
        const std::lock_guard lock(mutex_);
        progressBar_.visible = false;
        destinations_.clear();
        checks_ = {};
    }
    setStatus(Idle);
    transferCount_.store(0);
    threadCount_.store(0);
    transferEnded_.store(false);
}

void QVVolume::makeDeterminate(ProgressIndicator& bar) {
    if (!bar.indeterminate)
        return;
    bar.indeterminate = false;
    bar.animating = true;
}

void QVVolume::resetProgress() {
    {
        const std::lock_guard lock(mutex_);
        makeDeterminate(progressBar_);
        progressBar_.doubleValue = 0;
        errorString_.reset();
        sourceChecksumDict_.clear();
        ledger_.reset();
        failedFiles_.clear();
    }
    timeEstimate_.reset();
}

void QVVolume::setMaxProgressValue(double value) {
    {
        const std::lock_guard lock(mutex_);
        makeDeterminate(progressBar_);
        progressBar_.maxValue = value;
        progressBar_.doubleValue = 0;
    }
    timeEstimate_.setTotalValue(value);
}

void QVVolume::incrementProgress(double amount) {
    {
        const std::lock_guard lock(mutex_);
        makeDeterminate(progressBar_);
        progressBar_.doubleValue += amount;
    }
    timeEstimate_.incrementCurrentValue(amount);
}

void QVVolume::incrementMaxProgress(double amount) {
    const double total = progressBar().maxValue + amount;
    timeEstimate_.setTotalValue(total);
    setMaxProgressValue(total);
}

void QVVolume::makeProgressIndeterminate() {
    const std::lock_guard lock(mutex_);
    progressBar_.indeterminate = true;
    progressBar_.animating = true;
}

void QVVolume::setProgressValue(double value) {
    const std::lock_guard lock(mutex_);
    progressBar_.doubleValue = value;
}

std::uint64_t QVVolume::totalMediaUsage(FileLayer& files) {
    {
        const std::lock_guard lock(mutex_);
        if (totalMediaUsage_ != 0)
            return totalMediaUsage_;
    }
    const QString root = path();
    QStringList candidates;
    const bool movies = hasQTMovies();
    if (movies) {
        if (!qtMoviePaths())
            populateQuickTimeMovies(files);
        candidates = qtMoviePaths().value_or(QStringList());
    } else {
        candidates = entryNames(files, root);
    }
    std::uint64_t total = 0;
    for (const QString& candidate : candidates) {
        if (isLitter(candidate))
            continue;
        total += QVFileManager(files).fileSize(movies ? candidate : root + u'/' + candidate);
    }
    const std::lock_guard lock(mutex_);
    totalMediaUsage_ = total;
    return total;
}

QString QVVolume::udid(const DiskInformation& disks) const {
    const auto info = disks.forMountPoint(path());
    if (!info)
        return {};
    QVLog::appendLog(u"output dict: %@", QString::fromUtf8(info->toXml()));
    return (*info)["VolumeUUID"].toString();
}

QString QVVolume::typeName() const {
    return typeName(type());
}

QString QVVolume::typeName(qint64 type) {
    static const char* const names[] = {"P2",    "RED",   "XDCAM", "XDCAM EX",
                                        "AVCHD", "EOSHD", "ARRI",  "Canon XF"};
    if (type < 0 || type > 7)
        return QStringLiteral("Unknown");
    return QString::fromLatin1(names[type]);
}

QString QVVolume::statusText() const {
    switch (status()) {
        case Failed: {
            const auto error = errorString();
            return error ? QStringLiteral("Error: %1").arg(*error) : QStringLiteral("Error");
        }
        case Idle:
            return QStringLiteral("Waiting");
        case Copying:
            return QStringLiteral("Copying...");
        case Verifying:
            return QStringLiteral("Verifying...");
        case Formatting:
            return QStringLiteral("Formatting...");
        case Unmounting:
            return QStringLiteral("Unmounting...");
        case Done: {
            // "Done" alone is read as verified; it is said only when the contents were.
            const TransferChecks checks = transferChecks();
            if (!checks.started || checks.checksums)
                return QStringLiteral("Done");
            return checks.sizes ? QStringLiteral("Done (sizes checked)")
                                : QStringLiteral("Done (copied, not verified)");
        }
        case Cancelled:
            // Stopped by something other than the user (a pulled card, shutting down): why.
            return errorString().value_or(QStringLiteral("Canceled"));
        case Finishing:
            return QStringLiteral("Finishing...");
        default:
            return QString();
    }
}

std::shared_ptr<const VolumeSnapshot> QVVolume::snapshot() {
    auto shot = std::make_shared<VolumeSnapshot>();
    shot->timeRemaining = timeEstimate_.timeRemaining();
    shot->status = status();
    shot->statusText = statusText();
    const std::lock_guard lock(mutex_);
    shot->name = name_;
    shot->path = path_;
    shot->type = type_;
    shot->typeName = typeName(type_);
    shot->errorString = errorString_;
    shot->progress = progressBar_.doubleValue;
    shot->maxProgress = progressBar_.maxValue;
    shot->indeterminate = progressBar_.indeterminate;
    shot->destinations = destinations_;
    shot->outputs = outputs_;
    shot->isFolder = isFolder_;
    shot->metadata = metadata_;
    shot->failedFileCount = failedFiles_.size();
    shot->checks = checks_;
    return shot;
}

void QVVolume::checkForQuickTimeMovies(FileLayer& files) {
    setHasQTMovies(!quickTimeMoviesInFolder(files, path(), 1).isEmpty());
}

void QVVolume::populateQuickTimeMovies(FileLayer& files) {
    setQtMoviePaths(quickTimeMoviesInFolder(files, path()));
}

QStringList QVVolume::quickTimeMoviesInFolder(FileLayer& files, const QString& folder, int limit) {
    QStringList movies;
    QStringList names = entryNames(files, folder);
    names.sort();
    for (const QString& name : names) {
        const QString entry = folder + u'/' + name;
        struct stat status {};
        const bool folderEntry =
            files.linkStatus(QFile::encodeName(entry), &status) == 0 && S_ISDIR(status.st_mode);
        if (folderEntry) {
            movies += quickTimeMoviesInFolder(files, entry, limit);
        } else if (QFileInfo(entry).suffix().toLower() == QLatin1String("mov") ||
                   QVFileManager(files).hfsTypeCodeForPath(entry) == kMovieTypeCode) {
            movies << entry;
        }
        if (limit >= 0 && movies.size() >= limit)
            break;
    }
    return movies;
}

void QVVolume::updateSourceChecksum(const QString& checksum, const QString& path) {
    const std::lock_guard lock(mutex_);
    sourceChecksumDict_[path] = checksum;
}

void QVVolume::updateDestChecksum(const QString& checksum, const QString& path,
                                  const QString& mountPoint) {
    const std::lock_guard lock(mutex_);
    destChecksumDict_[mountPoint][path] = checksum;
}

std::map<QString, QVVolume::ChecksumMap> QVVolume::destChecksumDict() const {
    return locked(mutex_, destChecksumDict_);
}

void QVVolume::setDestChecksumDict(const std::map<QString, ChecksumMap>& checksums) {
    assign(mutex_, destChecksumDict_, checksums);
}

namespace {

// The values of the fields whose numbers are spent when a transfer starts.
QVVolume::MetadataValues numbersOf(const QVVolume::MetadataValues& values,
                                   const SettingsStore& settings) {
    QVVolume::MetadataValues numbers;
    for (const MetadataField& field :
         MetadataField::listFrom(settings.get(SettingsKey::metadata))) {
        const auto found = values.find(field.identifier());
        if (MetadataNaming::isNumbered(field) && found != values.end())
            numbers.insert(*found);
    }
    return numbers;
}

}  // namespace

void QVVolume::populateDefaultMetadata(const SettingsStore& settings) {
    const MetadataValues values =
        MetadataNaming::populateDefaultMetadata(settings, *clock_, QVLocalPaths::username());
    const MetadataValues numbers = numbersOf(values, settings);
    const std::lock_guard lock(mutex_);
    metadata_ = values;
    listedNumbers_ = numbers;
}

QVVolume::MetadataValues QVVolume::claimMetadata(SettingsStore& settings) {
    MetadataValues shown;
    MetadataValues listed;
    {
        const std::lock_guard lock(mutex_);
        shown = metadata_;
        listed = std::exchange(listedNumbers_, {});
    }
    if (listed.empty())
        return shown;
    const MetadataValues claimed =
        MetadataNaming::claimNumbers(settings, *clock_, shown, listed, QVLocalPaths::username());
    const std::lock_guard lock(mutex_);
    for (const auto& [identifier, value] : listed) {
        // Typed in meanwhile: the user's value stands.
        const auto number = claimed.find(identifier);
        if (number != claimed.end() && metadata_[identifier] == shown[identifier])
            metadata_[identifier] = number->second;
    }
    return metadata_;
}

void QVVolume::restoreMetadata(const MetadataValues& values) {
    const std::lock_guard lock(mutex_);
    metadata_ = values;
    listedNumbers_.clear();
}

bool QVVolume::refreshListedMetadata(const SettingsStore& settings) {
    if (locked(mutex_, listedNumbers_).empty())
        return false;
    const MetadataValues fresh =
        MetadataNaming::populateDefaultMetadata(settings, *clock_, QVLocalPaths::username());
    const std::lock_guard lock(mutex_);
    bool changed = false;
    for (auto& [identifier, listed] : listedNumbers_) {
        const auto now = fresh.find(identifier);
        if (now == fresh.end() || now->second == listed || metadata_[identifier] != listed)
            continue;
        metadata_[identifier] = now->second;
        listed = now->second;
        changed = true;
    }
    return changed;
}
