#pragma once
// How a new volume's metadata values are filled from the field defaults, how numbers
// advance from card to card, and how the values name the volume's destination folder.

#include <QDateTime>
#include <QString>
#include <optional>
#include <vector>

#include "Clock.h"
#include "MetadataField.h"
#include "SettingsStore.h"

class MetadataNaming {
  public:
    /// The next number after `s`: an all-digit string (or "") counts up keeping its
    /// width ("007" -> "008", "" -> "1"); otherwise the tail after the last
    /// non-alphanumeric character counts up from its first digit ("A1B2" -> "A002").
    /// A tail that does not end in a digit ("CARD", "Reel-") is returned unchanged.
    static QString incrementNumber(const QString& s);

    /// `s` left-padded with "0" to `length`; never shortened.
    static QString padNumberString(const QString& s, int length);

    /// The moment in local time as "YYYY_MM_DD_hh_mm_ss".
    static QString timestamp(const QDateTime& local);
    /// The day in local time as "YYYY-MM-DD".
    static QString date(const QDateTime& local);

    /// A new volume's values, one per field of the settings' `metadata` array, as the volume
    /// list shows them before its transfer: each incrementing field shows the number after its
    /// default, and a field titled "Day" counts one up when the last transfer fell on another
    /// day of the month. Nothing is spent: numbers are claimed when a transfer starts.
    static MetadataValues populateDefaultMetadata(const SettingsStore& settings, const Clock& clock,
                                                  const QString& userName);

    /// The values a starting transfer uses. Each incrementing or "Day" field still showing what
    /// it was listed with (`listed`) takes its number now, and the number is saved as the
    /// field's default: the next card takes the next reel, and the day counted up stays for
    /// the rest of that day. A value the user typed is kept. The defaults are read, changed and
    /// written back in one settings transaction, so concurrent callers (other processes too)
    /// get numbers of their own. Call before the transfer's date is recorded.
    static MetadataValues claimNumbers(SettingsStore& settings, const Clock& clock,
                                       const MetadataValues& shown, const MetadataValues& listed,
                                       const QString& userName);
    /// The fields whose value depends on when a card's transfer starts.
    static bool isNumbered(const MetadataField& field);

    /// Remembers the values a card's transfer used under the card's identity (its file
    /// system's UUID), so the card shows them again when it is listed after a restart.
    static void rememberCard(SettingsStore& settings, const QString& card,
                             const MetadataValues& values);
    /// The values remembered for the card; nullopt when it never started a transfer here.
    static std::optional<MetadataValues> recallCard(const SettingsStore& settings,
                                                    const QString& card);
    /// Forgets the card: it holds new clips since, so it is a new reel.
    static void forgetCard(SettingsStore& settings, const QString& card);

    /// `destination` (a leading "~" meaning the home folder) / `projectTitle` / the value
    /// of each field used in the path, in order. Timestamp fields take a fresh stamp,
    /// which is also stored into `values`; an empty or missing value names the level
    /// "Unknown". Values are not cleaned: a "/" inside one makes a further level.
    static QString composeDestination(const QString& destination, const QString& projectTitle,
                                      MetadataValues& values,
                                      const std::vector<MetadataField>& fields, const Clock& clock);

    /// "/Title" for each field used in the path, or "/" when there is none.
    static QString pathPreview(const std::vector<MetadataField>& fields);

    /// The volume's value for `identifier`, else the default of the field it names.
    static QString displayValue(const MetadataValues& values, const QString& identifier,
                                const std::vector<MetadataField>& fields);

    /// Stores `value` for the volume and, so the next card starts from it, as the default
    /// of the field `identifier` names (saved at once).
    static void setValue(MetadataValues& values, const QString& identifier, const QString& value,
                         SettingsStore& settings);

    /// "Untitled", or "Untitled-N" with the first N from 2 not already taken.
    static QString proposeFieldTitle(const std::vector<MetadataField>& fields);

    /// False when `newTitle` is empty once spaces are removed, or when some field (the
    /// one being renamed included) already has exactly that title.
    static bool canRenameField(const std::vector<MetadataField>& fields, const QString& newTitle);

    /// `value` with every double quote removed, as edited values are stored.
    static QString cleanEditedValue(const QString& value);
};
