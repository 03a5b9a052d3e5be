// FormulaEval: one formula evaluated at the prompt, on a row of given cells.
#pragma once

// The arguments behind --eval: FORMULA TYPE COLLECTIONS NAME=VALUE... An empty TYPE is a plain number. COLLECTIONS is how
// often the row is collected, 0 for as often as the name with the most values has values: each collection takes the next
// value of a name, and the last one again when there are no more.
//
// A value is what it looks like: 5 is a 32-bit integer, 5000000000 and 5l a 64-bit one, 5u an unsigned one, 0.5 a double,
// and anything else, or what stands in double quotes, a text.
//
// Prints a line for each collection on standard output: the value and its type. Warnings and a syntax error go to standard
// error. Returns 0, 1 for a formula that does not parse, or 2 for wrong usage.
int evaluateAtPrompt(int count, char** arguments);
