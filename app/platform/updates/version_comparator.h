#pragma once

// Orders version texts the way appcast publishers expect: "1.0" = "1.0.0", "1.0b1" < "1.0",
// "1.0" < "1.0.1", "1.9" < "1.10".
//
// A version is read as runs of ASCII digits (numbers), runs of letters (words) and runs of
// anything else (separators, which only end the run before them). Runs are compared in turn:
// two numbers by value, two words lexically, and a word loses to a number, because a word
// where the other version goes on with a number marks a pre-release ("1.0b1" against
// "1.0.1"). When one version runs out, the rest of the longer one decides: zeros add nothing,
// a word first makes it older, a non-zero number first makes it newer.

#include <QStringView>
#include <compare>

std::weak_ordering CompareVersions(QStringView left, QStringView right);
