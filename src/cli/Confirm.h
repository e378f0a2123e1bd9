#pragma once

#include <QString>

// The question asked before anything moves or is deleted. It is only ever put to a person
// at a terminal; scripts have to say --yes up front.
namespace Confirm {

enum class Answer { yes, no, noTerminal };

// Whether ask() can get an answer: --yes was given or standard input is a terminal.
bool possible(bool assumeYes);

// `question` and " [y/N] " on standard error, one line read from standard input; only
// "y"/"yes" (any case) or "是" agree. End of input is a no.
Answer ask(const QString &question, bool assumeYes);

// Why nothing happened when possible() is false.
QString refusal();

} // namespace Confirm
