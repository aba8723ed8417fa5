#include "MetadataNaming.h"

#include <QDir>
#include <algorithm>
#include <limits>

#include "Preferences.h"
#include "QVLog.h"

namespace {

const QString kUnknownLevel = QStringLiteral("Unknown");
const QString kIdentifierPrefix = QStringLiteral("QVMeta");
const QString kUntitled = QStringLiteral("Untitled");
const QString kDayTitle = QStringLiteral("Day");
constexpr qint64 kLargest = std::numeric_limits<qint64>::max();

// A character of a string with where it starts, so surrogate pairs count as one
// character and the untouched part of the string is kept byte for byte.
struct CodePoint {
    char32_t value;
    qsizetype offset;
};

std::vector<CodePoint> codePoints(const QString& s) {
    std::vector<CodePoint> points;
    points.reserve(static_cast<std::size_t>(s.size()));
    for (qsizetype i = 0; i < s.size(); ++i) {
        const QChar c = s.at(i);
        if (c.isHighSurrogate() && i + 1 < s.size() && s.at(i + 1).isLowSurrogate()) {
            points.push_back({QChar::surrogateToUcs4(c, s.at(i + 1)), i});
            ++i;
        } else {
            points.push_back({c.unicode(), i});
        }
    }
    return points;
}

bool isDigit(const CodePoint& point) {
    return QChar::isDigit(point.value);
}

qint64 saturatingIncrement(qint64 value) {
    return value == kLargest ? kLargest : value + 1;
}

// Reads like atoi: leading white space, an optional sign, then decimal digits, stopping
// at the first other character; a digit run too long for the type saturates.
qint64 integerReading(const std::vector<CodePoint>& points, std::size_t from = 0) {
    std::size_t i = from;
    while (i < points.size() && QChar::isSpace(points[i].value)) {
        ++i;
    }
    bool negative = false;
    if (i < points.size() && (points[i].value == U'-' || points[i].value == U'+')) {
        negative = points[i].value == U'-';
        ++i;
    }
    qint64 magnitude = 0;
    for (; i < points.size() && isDigit(points[i]); ++i) {
        const int digit = QChar::digitValue(points[i].value);
        magnitude = magnitude > (kLargest - digit) / 10 ? kLargest : magnitude * 10 + digit;
    }
    return negative ? -magnitude : magnitude;
}

QString expandTilde(const QString& path) {
    if (path == QLatin1String("~")) {
        return QDir::homePath();
    }
    if (path.startsWith(QLatin1String("~/"))) {
        return QDir::homePath() + path.mid(1);
    }
    return path;
}

QString appendComponent(const QString& path, const QString& component) {
    if (path.isEmpty()) {
        return component;
    }
    return path + QLatin1Char('/') + component;
}

// One "/" between levels and none at the end, whatever the pieces brought with them.
QString tidySeparators(const QString& path) {
    QString tidy;
    tidy.reserve(path.size());
    for (const QChar c : path) {
        if (c == QLatin1Char('/') && tidy.endsWith(QLatin1Char('/'))) {
            continue;
        }
        tidy.append(c);
    }
    if (tidy.size() > 1 && tidy.endsWith(QLatin1Char('/'))) {
        tidy.chop(1);
    }
    return tidy;
}

bool hasType(const MetadataField& field, MetadataFieldType type) {
    return field.type == static_cast<qint64>(type);
}

// The value a new volume starts with, before incrementing and the Day rule.
QString initialValue(const MetadataField& field, const QDateTime& now, const QString& userName) {
    if (field.type < 0 || field.type > static_cast<qint64>(MetadataFieldType::UserName)) {
        return QString();
    }
    switch (static_cast<MetadataFieldType>(field.type)) {
        case MetadataFieldType::Text:
        case MetadataFieldType::Number:
            return field.defaultVal;
        case MetadataFieldType::IncrementingNumber:
            return MetadataNaming::incrementNumber(field.defaultVal.isEmpty() ? QStringLiteral("0")
                                                                              : field.defaultVal);
        case MetadataFieldType::Timestamp:
            return MetadataNaming::timestamp(now);
        case MetadataFieldType::Date:
            return MetadataNaming::date(now);
        case MetadataFieldType::UserName:
            return userName;
    }
    return QString();
}

// Only the day of the month is compared: a transfer on the same day number of another
// month does not count as a new day.
QString applyDayRule(const QString& value, const SettingsStore& settings, const QDateTime& now) {
    const PropertyList last = settings.get(SettingsKey::lastTransferDate);
    if (last.type() != PropertyList::Type::Date) {
        return value;
    }
    if (last.toDateTime().toLocalTime().date().day() == now.toLocalTime().date().day()) {
        return value;
    }
    const qint64 number = integerReading(codePoints(value));
    return number > 0 ? QString::number(saturatingIncrement(number)) : value;
}

}  // namespace

QString MetadataNaming::incrementNumber(const QString& s) {
    const std::vector<CodePoint> points = codePoints(s);
    if (std::all_of(points.begin(), points.end(), isDigit)) {
        return padNumberString(QString::number(saturatingIncrement(integerReading(points))),
                               static_cast<int>(points.size()));
    }

    const auto lastSeparator =
        std::find_if(points.rbegin(), points.rend(),
                     [](const CodePoint& point) { return !QChar::isLetterOrNumber(point.value); });
    const std::size_t tailStart = static_cast<std::size_t>(points.rend() - lastSeparator);
    if (tailStart == points.size() || !isDigit(points.back())) {
        return s;
    }

    // From the tail's first digit, not from the start of its last digit run: "A1B2"
    // becomes "A002".
    const auto firstDigit = std::find_if(points.begin() + static_cast<std::ptrdiff_t>(tailStart),
                                         points.end(), isDigit);
    const std::size_t digitsFrom = static_cast<std::size_t>(firstDigit - points.begin());
    const qint64 next = saturatingIncrement(integerReading(points, digitsFrom));
    return s.left(points[digitsFrom].offset) +
           padNumberString(QString::number(next), static_cast<int>(points.size() - digitsFrom));
}

QString MetadataNaming::padNumberString(const QString& s, int length) {
    if (s.size() >= length) {
        return s;
    }
    return QString(length - s.size(), QLatin1Char('0')) + s;
}

QString MetadataNaming::timestamp(const QDateTime& local) {
    const QDateTime moment = local.toLocalTime();
    const QDate day = moment.date();
    const QTime time = moment.time();
    return QString::asprintf("%04d_%02d_%02d_%02d_%02d_%02d", day.year(), day.month(), day.day(),
                             time.hour(), time.minute(), time.second());
}

QString MetadataNaming::date(const QDateTime& local) {
    const QDate day = local.toLocalTime().date();
    return QString::asprintf("%04d-%02d-%02d", day.year(), day.month(), day.day());
}

MetadataValues MetadataNaming::populateDefaultMetadata(const SettingsStore& settings,
                                                       const Clock& clock,
                                                       const QString& userName) {
    MetadataValues values;
    const PropertyList stored = settings.get(SettingsKey::metadata);
    if (stored.type() != PropertyList::Type::Array) {
        QVLog::appendLog(u"Metadata fields setting is not a list; the volume gets no metadata");
        return values;
    }
    const QDateTime now = clock.now();
    for (const MetadataField& field : MetadataField::listFrom(stored)) {
        QString value = initialValue(field, now, userName);
        if (field.title == kDayTitle)
            value = applyDayRule(value, settings, now);
        values[field.identifier()] = value.isNull() ? QStringLiteral("") : value;
    }
    return values;
}

bool MetadataNaming::isNumbered(const MetadataField& field) {
    return hasType(field, MetadataFieldType::IncrementingNumber) || field.title == kDayTitle;
}

MetadataValues MetadataNaming::claimNumbers(SettingsStore& settings, const Clock& clock,
                                            const MetadataValues& shown,
                                            const MetadataValues& listed, const QString& userName) {
    MetadataValues values = shown;
    settings.transaction([&] {
        const PropertyList stored = settings.get(SettingsKey::metadata);
        if (stored.type() != PropertyList::Type::Array)
            return;
        std::vector<MetadataField> fields = MetadataField::listFrom(stored);
        const QDateTime now = clock.now();
        bool changed = false;
        for (MetadataField& field : fields) {
            const QString identifier = field.identifier();
            const auto was = listed.find(identifier);
            const auto is = shown.find(identifier);
            // A value the user typed is the card's own.
            if (!isNumbered(field) || was == listed.end() ||
                (is != shown.end() && is->second != was->second))
                continue;
            QString value = initialValue(field, now, userName);
            if (field.title == kDayTitle)
                value = applyDayRule(value, settings, now);
            if (value.isNull())
                continue;
            // The stored default always holds the last number handed out.
            changed = changed || field.defaultVal != value;
            field.defaultVal = value;
            values[identifier] = value;
        }
        if (changed)
            settings.set(SettingsKey::metadata, MetadataField::toArray(fields));
    });
    return values;
}

namespace {

constexpr std::size_t kRememberedCards = 500;
const QString kCardKey = QStringLiteral("card");
const QString kValuesKey = QStringLiteral("metadata");

PropertyList::Array rememberedCards(const SettingsStore& settings) {
    const PropertyList cards = settings.get(SettingsKey::transferredCards);
    return cards.type() == PropertyList::Type::Array ? cards.toArray() : PropertyList::Array();
}

PropertyList::Array withoutCard(PropertyList::Array cards, const QString& card) {
    cards.erase(std::remove_if(cards.begin(), cards.end(),
                               [&](const PropertyList& entry) {
                                   return entry.type() == PropertyList::Type::Dictionary &&
                                          entry[kCardKey].toString() == card;
                               }),
                cards.end());
    return cards;
}

}  // namespace

void MetadataNaming::rememberCard(SettingsStore& settings, const QString& card,
                                  const MetadataValues& values) {
    if (card.isEmpty())
        return;
    settings.transaction([&] {
        PropertyList::Array cards = withoutCard(rememberedCards(settings), card);
        PropertyList::Dictionary stored;
        for (const auto& [identifier, value] : values)
            stored[identifier] = value;
        cards.push_back(PropertyList::Dictionary{{kCardKey, card}, {kValuesKey, stored}});
        if (cards.size() > kRememberedCards)
            cards.erase(cards.begin(),
                        cards.begin() + std::ptrdiff_t(cards.size() - kRememberedCards));
        settings.set(SettingsKey::transferredCards, cards);
    });
}

std::optional<MetadataValues> MetadataNaming::recallCard(const SettingsStore& settings,
                                                         const QString& card) {
    if (card.isEmpty())
        return std::nullopt;
    for (const PropertyList& entry : rememberedCards(settings)) {
        if (entry.type() != PropertyList::Type::Dictionary || entry[kCardKey].toString() != card ||
            entry[kValuesKey].type() != PropertyList::Type::Dictionary)
            continue;
        MetadataValues values;
        for (const auto& [identifier, value] : entry[kValuesKey].toDictionary())
            values[identifier] = value.toString();
        return values;
    }
    return std::nullopt;
}

void MetadataNaming::forgetCard(SettingsStore& settings, const QString& card) {
    if (card.isEmpty())
        return;
    settings.transaction([&] {
        const PropertyList::Array cards = rememberedCards(settings);
        const PropertyList::Array kept = withoutCard(cards, card);
        if (kept.size() != cards.size())
            settings.set(SettingsKey::transferredCards, kept);
    });
}

QString MetadataNaming::composeDestination(const QString& destination, const QString& projectTitle,
                                           MetadataValues& values,
                                           const std::vector<MetadataField>& fields,
                                           const Clock& clock) {
    const QDateTime now = clock.now();
    QString path = appendComponent(expandTilde(destination), projectTitle);
    for (const MetadataField& field : fields) {
        if (field.useInPath != 1) {
            continue;
        }
        const QString identifier = field.identifier();
        if (hasType(field, MetadataFieldType::Timestamp)) {
            // The stamp that names the folder is the one the spreadsheet and tags show.
            values[identifier] = timestamp(now);
        }
        const auto found = values.find(identifier);
        const bool empty = found == values.end() || found->second.isEmpty();
        path = appendComponent(path, empty ? kUnknownLevel : found->second);
    }
    return tidySeparators(path);
}

QString MetadataNaming::pathPreview(const std::vector<MetadataField>& fields) {
    QString preview;
    for (const MetadataField& field : fields) {
        if (field.useInPath == 1) {
            preview += QLatin1Char('/') + field.title;
        }
    }
    return preview.isEmpty() ? QStringLiteral("/") : preview;
}

QString MetadataNaming::displayValue(const MetadataValues& values, const QString& identifier,
                                     const std::vector<MetadataField>& fields) {
    if (const auto found = values.find(identifier); found != values.end()) {
        return found->second;
    }
    if (!identifier.startsWith(kIdentifierPrefix)) {
        return QString();
    }
    const QString title = identifier.mid(kIdentifierPrefix.size());
    const auto field = std::find_if(fields.begin(), fields.end(), [&](const MetadataField& f) {
        return MetadataField::spacelessTitle(f.title) == title;
    });
    return field == fields.end() ? QString() : field->defaultVal;
}

void MetadataNaming::setValue(MetadataValues& values, const QString& identifier,
                              const QString& value, SettingsStore& settings) {
    values[identifier] = value;
    std::vector<MetadataField> fields =
        MetadataField::listFrom(settings.get(SettingsKey::metadata));
    const auto field = std::find_if(fields.begin(), fields.end(), [&](const MetadataField& f) {
        return f.identifier() == identifier;
    });
    if (field == fields.end()) {
        return;
    }
    field->defaultVal = value;
    settings.set(SettingsKey::metadata, MetadataField::toArray(fields));
}

QString MetadataNaming::proposeFieldTitle(const std::vector<MetadataField>& fields) {
    const auto taken = [&](const QString& title) {
        return std::any_of(fields.begin(), fields.end(),
                           [&](const MetadataField& field) { return field.title == title; });
    };
    QString title = kUntitled;
    for (int counter = 2; taken(title); ++counter) {
        title = kUntitled + QLatin1Char('-') + QString::number(counter);
    }
    return title;
}

bool MetadataNaming::canRenameField(const std::vector<MetadataField>& fields,
                                    const QString& newTitle) {
    if (MetadataField::spacelessTitle(newTitle).isEmpty()) {
        return false;
    }
    return std::none_of(fields.begin(), fields.end(),
                        [&](const MetadataField& field) { return field.title == newTitle; });
}

QString MetadataNaming::cleanEditedValue(const QString& value) {
    QString cleaned = value;
    return cleaned.remove(QLatin1Char('"'));
}
