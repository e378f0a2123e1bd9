#pragma once

#include <QString>

// What emptying the Trash did.
struct TrashEmptyResult
{
    // stillEmptying: the system went on emptying after the wait for its answer ended (macOS).
    enum class Code { emptied, partial, failed, stillEmptying };
    Code code = Code::emptied;
    int left = 0;       // partial: counted entries that remain
    int kept = 0;       // entries that arrived after the count, left in the Trash
    QString systemText; // failed: the system's own words, when it gave any
};
