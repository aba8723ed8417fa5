#include "ManifestComparison.h"

#include <map>
#include <set>

#include "ChecksumManifest.h"
#include "PathText.h"

namespace {

using Listing = std::map<QByteArray, QByteArray>;  // name -> digest (or FAILED)

Listing listingOf(const QByteArray& text) {
    Listing listing;
    for (const QByteArray& raw : text.split('\n')) {
        const auto line = ChecksumManifest::decode(raw);
        if (line && line->digest != ChecksumManifest::kIncomplete)
            listing[line->name] = line->digest;
    }
    return listing;
}

QString digestIn(const Listing& listing, const QByteArray& name) {
    const auto found = listing.find(name);
    return found == listing.end() ? QString() : QString::fromLatin1(found->second);
}

}  // namespace

ManifestComparison::Result ManifestComparison::compare(const QStringList& folders,
                                                       FileLayer& layer) {
    Result result;
    std::vector<std::pair<QString, Listing>> listings;
    std::set<QByteArray> names;
    for (const QString& folder : folders) {
        const auto text = ChecksumManifest::read(layer, PathText::bytes(folder));
        if (!text) {
            result.withoutManifest << folder;
            continue;
        }
        Listing listing = listingOf(*text);
        for (const auto& entry : listing)
            names.insert(entry.first);
        listings.emplace_back(folder, std::move(listing));
    }
    result.files = int(names.size());
    if (listings.empty())
        return result;
    const Listing& reference = listings.front().second;
    for (const QByteArray& name : names) {
        const QString expected = digestIn(reference, name);
        for (std::size_t i = 1; i < listings.size(); ++i) {
            const QString found = digestIn(listings[i].second, name);
            // A copy that failed says so in its manifest: never the same as a digest.
            const bool failed = found == QString::fromLatin1(ChecksumManifest::kFailed) ||
                                expected == QString::fromLatin1(ChecksumManifest::kFailed);
            if (found == expected && !failed)
                continue;
            result.differences.push_back(
                {PathText::display(name), listings[i].first, found, expected});
        }
    }
    return result;
}
