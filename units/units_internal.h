// What the units scanner, parser and table share: the value of a unit expression, the state of
// one parse, and the family's functions that callers of the library have no use for.
//
// Everything here is used under the units lock: the scanner and the parser keep their state in
// process-wide variables, and only one parse runs at a time.
#ifndef CORVEL_UNITS_UNITS_INTERNAL_H_
#define CORVEL_UNITS_UNITS_INTERNAL_H_

#include <stdio.h>

#include "corvel/units.h"

CORVEL_BEGIN_DECLS

/* Declares name as the next basis unit: factor 1, exponent 1 in a dimension of its own. 0, or
 * -1 (after a complaint) when all UNITS_MAX_BASIS dimensions are taken. */
CORVEL_API int add_unit(const char *name);
/* The length of the first prefix of the prefix table that begins name, with its factor in
 * *factor; 0 (and a factor of 1) when none does. */
CORVEL_API int prefixed(const char *name, double *factor);
/* Logs a parse failure with the current line number and counts it. */
CORVEL_API void UX_error(const char *message);
/* The scanner and the parser over the current source (see BeginTable and BeginExpression).
 * UX_parse reads one statement: 1 after a table statement, 2 after an expression (in
 * State().result), 0 at the end of the table, -1 after an error. */
CORVEL_API int UX_lex(void);
CORVEL_API int UX_parse(void);

CORVEL_END_DECLS

namespace corvel {
namespace units {

// A unit expression's value: its size in basis units and the powers of the basis units.
struct Quantity {
  double factor;
  int exponents[UNITS_MAX_BASIS];
};

// What the scanner hands the parser with a token. A name is an offset into the parse's name
// store, which may move as it grows.
union TokenValue {
  double number;
  long name;
  Quantity quantity;
};

// What the source holds; the scanner's first token of each statement says it to the parser.
enum class SourceKind { kTable, kExpression };

struct ParseState {
  SourceKind kind;
  bool start_pending;  // the kind's token is still to be returned
  bool line_ended;     // the last token ended a line (or none was read yet)
  bool line_pending;   // the line is to be counted before the next token
  FILE *file;          // the table, or null while reading an expression
  const char *text;    // the expression and what is left of it
  size_t text_left;
  bool blank_pending;  // an expression is read with a blank in front of it
  int line;            // the table's line, or -1 / -2 for the two sides of a conversion
  int errors;          // failures counted by UX_error
  int statement;       // what UX_parse read: 1 table statement, 2 expression, 0 end
  Quantity result;     // the value of an expression
  char *names;         // the names of this statement, each terminated
  size_t names_used;
  size_t names_size;
};

// The one parse state; only ever used under the units lock.
ParseState &State();

// Scanner side: where the next UX_parse reads from. The scanner's buffer is kept and only
// what an earlier parse left unread is dropped.
void BeginTable(FILE *table);
void BeginExpression(const char *text, int line);
void ResetScanner();
// Keeps a copy of a name of this statement and returns its offset; Name turns it back into
// text, valid until the next StoreName.
long StoreName(const char *text, size_t length);
const char *Name(long offset);

// Parser side: the arithmetic of the grammar.
Quantity Dimensionless(double factor);
// A unit by name, and raised to a power: false when it is not found (after a message).
bool UnitNamed(const char *name, Quantity *value);
bool UnitPower(const char *name, double power, Quantity *value);
Quantity Product(const Quantity &a, const Quantity &b);
Quantity Quotient(const Quantity &a, const Quantity &b);
Quantity Reciprocal(const Quantity &a);
Quantity Scaled(const Quantity &a, double factor);
double NumberPower(double base, double exponent);
// Table statements.
void DefineUnit(const char *name, const Quantity &value);
void DeclarePrimitive(const char *name);

// The units lock, and the table, loaded on first use by a caller that holds the lock.
void Lock();
void Unlock();
void LoadTable();
// Frees the table so that the next use loads it again: for the tests, which load several.
void ForgetTable();

}  // namespace units
}  // namespace corvel

#endif  // CORVEL_UNITS_UNITS_INTERNAL_H_
