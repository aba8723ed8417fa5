#include "TransferLedger.h"

#include <QHash>
#include <QSet>

#include "ChecksumManifest.h"
#include "PathText.h"

namespace {

int hexValue(QChar c) {
    const char16_t u = c.unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    return -1;
}

}  // namespace

TransferLedger::TransferLedger(std::size_t destinations)
    : destinations_(destinations), manifestNames_(destinations) {}

TransferLedger::Digest TransferLedger::parse(const QString& hex) {
    Digest digest;
    if (hex.size() % 2 != 0 || hex.size() > qsizetype(digest.bytes.size() * 2))
        return digest;
    for (qsizetype i = 0; i < hex.size(); i += 2) {
        const int high = hexValue(hex[i]);
        const int low = hexValue(hex[i + 1]);
        if (high < 0 || low < 0)
            return {};
        digest.bytes[std::size_t(i / 2)] = static_cast<unsigned char>(high * 16 + low);
    }
    digest.length = static_cast<unsigned char>(hex.size() / 2);
    return digest;
}

QByteArray TransferLedger::hex(const Digest& digest) {
    return QByteArray(reinterpret_cast<const char*>(digest.bytes.data()), digest.length).toHex();
}

void TransferLedger::recordFile(const QByteArray& relativePath, std::uint64_t size,
                                const QString& sourceDigest, const QStringList& destinationDigests,
                                const QStringList& alsoDigests) {
    const Digest source = parse(sourceDigest);
    std::vector<Digest> also;
    for (const QString& digest : alsoDigests)
        also.push_back(parse(digest));
    const std::lock_guard lock(mutex_);
    files_.push_back({relativePath, size, source, std::move(also)});
    for (std::size_t d = 0; d < destinations_; ++d) {
        const Digest copy = qsizetype(d) < destinationDigests.size()
                                ? parse(destinationDigests[qsizetype(d)])
                                : Digest();
        if (copy != source || source.length == 0)
            mismatches_.push_back({files_.size() - 1, d, copy});
    }
}

void TransferLedger::recordFailure(const QByteArray& relativePath, int destination,
                                   const QString& reason) {
    const std::lock_guard lock(mutex_);
    failures_.push_back({relativePath, destination, reason});
}

void TransferLedger::recordLink(const QByteArray& relativePath, const QByteArray& target) {
    const std::lock_guard lock(mutex_);
    links_.push_back({relativePath, target});
}

void TransferLedger::recordInterruption(const QString& reason) {
    const std::lock_guard lock(mutex_);
    if (!interruption_)
        interruption_ = reason;
}

std::vector<TransferLedger::Failure> TransferLedger::failures() const {
    const std::lock_guard lock(mutex_);
    return failures_;
}

std::vector<TransferLedger::Failure> TransferLedger::damaged() const {
    const std::lock_guard lock(mutex_);
    std::vector<Failure> damaged;
    for (const Mismatch& mismatch : mismatches_) {
        if (mismatch.digest.length > 0)
            damaged.push_back({files_[mismatch.file].path, int(mismatch.destination),
                               QStringLiteral("read back different from the card")});
    }
    return damaged;
}

std::vector<TransferLedger::Link> TransferLedger::links() const {
    const std::lock_guard lock(mutex_);
    return links_;
}

std::optional<QString> TransferLedger::interruption() const {
    const std::lock_guard lock(mutex_);
    return interruption_;
}

bool TransferLedger::hasProblems() const {
    const std::lock_guard lock(mutex_);
    return interruption_ || !failures_.empty() || !mismatches_.empty();
}

bool TransferLedger::failedOn(std::size_t destination) const {
    if (interruption_)
        return true;
    for (const Failure& failure : failures_) {
        if (failure.destination == kAllDestinations ||
            std::size_t(failure.destination) == destination)
            return true;
    }
    for (const Mismatch& mismatch : mismatches_) {
        if (mismatch.destination == destination)
            return true;
    }
    return false;
}

bool TransferLedger::isComplete(std::size_t destination) const {
    const std::lock_guard lock(mutex_);
    return destination < destinations_ && !failedOn(destination);
}

std::uint64_t TransferLedger::filesVerified(std::size_t destination) const {
    const std::lock_guard lock(mutex_);
    std::uint64_t bad = 0;
    for (const Mismatch& mismatch : mismatches_)
        bad += mismatch.destination == destination ? 1 : 0;
    return files_.size() - bad;
}

std::uint64_t TransferLedger::bytesVerified(std::size_t destination) const {
    const std::lock_guard lock(mutex_);
    std::uint64_t total = 0;
    for (const File& file : files_)
        total += file.size;
    for (const Mismatch& mismatch : mismatches_) {
        if (mismatch.destination == destination)
            total -= files_[mismatch.file].size;
    }
    return total;
}

// One line per name, where the name first appears: the digest of the last file of that name
// (the one copied last), or FAILED when any file of that name failed on this destination. A
// copy that read back different from the card is listed as failed, never with its own digest:
// a manifest must not vouch for damage. Names are looked at in place, never copied, so a card
// of many files costs little more than the text itself.
void TransferLedger::forEachLine(std::size_t destination, const LineVisitor& line) const {
    QSet<QByteArray> failedPaths;
    for (const Failure& failure : failures_) {
        if (failure.destination == kAllDestinations ||
            std::size_t(failure.destination) == destination)
            failedPaths.insert(failure.path);
    }
    QSet<std::size_t> damaged;
    for (const Mismatch& mismatch : mismatches_) {
        if (mismatch.destination == destination)
            damaged.insert(mismatch.file);
    }
    struct Name {
        std::size_t first;  // files, then failures of paths never copied
        std::size_t last;
        bool failed;
    };
    QHash<QByteArrayView, Name> names;
    names.reserve(qsizetype(files_.size()));
    const auto see = [&](std::size_t index, const QByteArray& path, bool failed) {
        const QByteArrayView name = QByteArrayView(path).sliced(path.lastIndexOf('/') + 1);
        const auto found = names.find(name);
        if (found == names.end()) {
            names.insert(name, {index, index, failed});
            return;
        }
        found->last = index;
        found->failed = found->failed || failed;
    };
    for (std::size_t i = 0; i < files_.size(); ++i) {
        const File& file = files_[i];
        see(i, file.path,
            failedPaths.remove(file.path) || damaged.contains(i) || file.digest.length == 0);
    }
    const std::size_t failuresStart = files_.size();
    for (std::size_t k = 0; k < failures_.size(); ++k) {
        if (failedPaths.contains(failures_[k].path))
            see(failuresStart + k, failures_[k].path, true);
    }
    const auto emit = [&](std::size_t index, const QByteArray& path) {
        const QByteArrayView name = QByteArrayView(path).sliced(path.lastIndexOf('/') + 1);
        const Name& entry = names[name];
        if (entry.first != index)
            return;
        line(entry.failed ? ChecksumManifest::kFailed : hex(files_[entry.last].digest),
             name.toByteArray());
    };
    for (std::size_t i = 0; i < files_.size(); ++i)
        emit(i, files_[i].path);
    for (std::size_t k = 0; k < failures_.size(); ++k)
        emit(failuresStart + k, failures_[k].path);
}

QByteArray TransferLedger::manifest(std::size_t destination) const {
    QByteArray text;
    manifest(destination, [&](const QByteArray& line) { text += line; });
    return text;
}

void TransferLedger::manifest(std::size_t destination,
                              const std::function<void(const QByteArray& line)>& out) const {
    const std::lock_guard lock(mutex_);
    forEachLine(destination, [&](const QByteArray& digest, const QByteArray& name) {
        out(ChecksumManifest::encode({digest, name}));
    });
    if (interruption_)
        out(ChecksumManifest::encode({ChecksumManifest::kIncomplete, interruption_->toUtf8()}));
}

std::map<QString, QString> TransferLedger::digestsByName(std::size_t destination) const {
    const std::lock_guard lock(mutex_);
    std::map<QString, QString> digests;
    forEachLine(destination, [&](const QByteArray& digest, const QByteArray& name) {
        digests[PathText::display(name)] = QString::fromLatin1(digest);
    });
    return digests;
}

void TransferLedger::forEachFile(const FileVisitor& visit) const {
    const std::lock_guard lock(mutex_);
    for (const File& file : files_)
        visit(file.path, file.size, hex(file.digest));
}

std::optional<TransferLedger::Recorded> TransferLedger::fileAt(const QByteArray& path) const {
    const std::lock_guard lock(mutex_);
    for (; indexed_ < files_.size(); ++indexed_)
        index_.insert(QByteArrayView(files_[indexed_].path), indexed_);
    const auto found = index_.constFind(QByteArrayView(path));
    if (found == index_.constEnd())
        return std::nullopt;
    const File& file = files_[*found];
    Recorded recorded{file.size, hex(file.digest), {}};
    for (const Digest& digest : file.also)
        recorded.also.push_back(hex(digest));
    return recorded;
}

QByteArray TransferLedger::manifestName(std::size_t destination) const {
    const std::lock_guard lock(mutex_);
    return destination < manifestNames_.size() ? manifestNames_[destination] : QByteArray();
}

void TransferLedger::setManifestName(std::size_t destination, const QByteArray& name) {
    const std::lock_guard lock(mutex_);
    if (destination < manifestNames_.size())
        manifestNames_[destination] = name;
}
