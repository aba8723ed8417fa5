#pragma once
// The kinds of standard folder a program asks for (user or machine domain).

enum class StandardDirectory {
    Applications,
    AdminApplications,
    Documents,
    Library,
    Preferences,
    Caches,
    ApplicationSupport,
    Movies,
    Desktop,
    SystemLibrary,
    Documentation,
    Logs,
};
