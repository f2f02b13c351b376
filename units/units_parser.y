%{
// The units grammar: one table statement, or one unit expression, per call.
//
// Numbers and units are separate phrases. A number phrase takes "*" and "^" with a single
// number on the right, left to right, and "/" divides by the whole number phrase to its right.
// A unit phrase is made of products (juxtaposition or "-") separated by "/", each product in
// the denominator of what stands before it. An expression is a number phrase, a unit phrase,
// or one of each in either order.
#include <string.h>

#include "units/units_internal.h"

using namespace corvel::units;

// A stack as deep as this holds any unit a person would write; deeper ones fail.
#define YYINITDEPTH 64
#define YYMAXDEPTH 1000

// The generated parser reads one statement; UX_parse below says what it was.
#undef yyparse
#define yyparse ParseStatement
int ParseStatement(void);

#undef yyerror
#define yyerror ReportParserError
static void ReportParserError(const char *message) {
  UX_error(strcmp(message, "memory exhausted") == 0 ? "yacc stack overflow" : message);
}
%}

%code requires {
#include "units/units_internal.h"
}

%define api.prefix {UX_}
%define api.value.type {union corvel::units::TokenValue}
%define api.token.prefix {UNITS_}

%token <number> NUMBER
%token <name> NAME
%token PRIMITIVE NEWLINE TABLE EXPRESSION

%type <quantity> expression unit_phrase product unit_power
%type <number> number_phrase

/* Within a number phrase, "*" and "^" bind tighter than "/", which groups to the right. */
%right '/'
%precedence '*' '^'

%%

/* The scanner begins every statement with what it reads, so that a conversion never defines a
   unit and a table holds no bare expressions. */
start:
    TABLE statement { State().statement = 1; YYACCEPT; }
  | TABLE { State().statement = 0; }
  | EXPRESSION expression { State().statement = 2; State().result = $2; }
  ;

statement:
    NAME '=' expression NEWLINE { DefineUnit(Name($1), $3); }
  | PRIMITIVE NAME NEWLINE { DeclarePrimitive(Name($2)); }
  | NEWLINE
  ;

expression:
    number_phrase { $$ = Dimensionless($1); }
  | number_phrase unit_phrase { $$ = Scaled($2, $1); }
  | unit_phrase number_phrase { $$ = Scaled($1, $2); }
  | unit_phrase
  ;

number_phrase:
    NUMBER
  | number_phrase '*' NUMBER { $$ = $1 * $3; }
  | number_phrase '^' NUMBER { $$ = NumberPower($1, $3); }
  | number_phrase '/' number_phrase { $$ = $1 / $3; }
  ;

unit_phrase:
    product
  | '/' product { $$ = Reciprocal($2); }
  | unit_phrase '/' product { $$ = Quotient($1, $3); }
  ;

product:
    unit_power
  | product unit_power { $$ = Product($1, $2); }
  | product '-' unit_power { $$ = Product($1, $3); }
  ;

/* The first unit not found ends the statement: one message is enough. */
unit_power:
    NAME { if (!UnitNamed(Name($1), &$$)) YYABORT; }
  | NAME '^' NUMBER { if (!UnitPower(Name($1), $3, &$$)) YYABORT; }
  ;

%%

int UX_parse(void) {
  ParseState &state = State();
  state.names_used = 0;
  state.statement = -1;
  state.start_pending = true;  // every statement begins with what the source is
  if (ParseStatement() != 0) return -1;
  return state.statement;
}
