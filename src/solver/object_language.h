#pragma once
// The object language: a small text form of a structure with named boxes, polygons and circles,
// arithmetic constants and comments, read by a yacc grammar. The parser keeps its state in the
// globals below and is not re-entrant: one parse runs at a time in a process.
//
//   begin
//   para a = 1.5; b = a * 2
//   box m1; volt = 1; at (0, a); w = b; h = 0.5
//   poly d1; diel = 3.9; (0,0), (4,0), (3,1), (1,1)
//   circ c1; volt = 0; at (2, 3); r = 0.25
//   end

#include <array>
#include <cstdint>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "solver/parser.h"

namespace RW2D {

// Token numbers shared by the scanner and the grammar. The reserved word at position k of
// ReservedWordsList is token RESERVED_BASE + k.
enum ObjToken : int {
    RESERVED_BASE = 300,
    NEW_CONST = 400,
    CONST = 401,
    NEW_NAME = 500,
    OBJECT = 501,
    NUMBER = 601,
};

inline constexpr int NUM_RESERVED_WORDS = 35;
inline constexpr int NAME_CHARS = 15;  // with the terminating zero

extern const std::array<const char*, NUM_RESERVED_WORDS> ReservedWordsList;

// Parser state. g_obj holds g_objnum objects, allocated when "begin" is read; it stays owned by
// the parser and valid until the next parse (or free_objects).
extern Object** g_obj;
extern int g_objnum;
extern std::ifstream g_tpddlin;  // the input being read
// Syntax errors over the life of the process. A syntax error ends its parse, so the count is
// reported by the "end" of the next parse that gets there.
extern std::int16_t g_errflg;
extern long errlocate;            // stream position of the last error
extern Object* curobj;            // object being filled
extern int curobjno;              // next free object
extern char curname[NAME_CHARS];  // last new name, at most 14 characters
extern bool constflag;            // inside a "para" statement: unknown words are new constants
extern std::vector<std::string> constvarlist;
extern std::vector<double> constvaluelist;
extern int constvarnum;

// Value of the last token: the number of NUMBER, the index of any name or constant.
struct LexValue {
    double number = 0.0;
    int index = 0;
};

// Reads the next token from g_tpddlin: 0 at the end of the input or at character 255, an
// ObjToken for numbers, words and names, otherwise the character itself. A "//" comment runs to
// its line end, and the character behind it is taken as it is, white space or '/' included; a
// "/*" comment runs through "*/" and reads as one '/'. Never fails.
int yylex(LexValue& value);

// Classifies a word (reserved word, known object, known constant, new constant, new name) and
// returns its token. Never fails.
int doalpha(const std::string& word, LexValue& value);

// Counts one syntax error: prints "Error the <n>th, CharLocate <pos>  Current char is <c>".
void yyerror(const char* message);

// Runs the grammar on g_tpddlin. Returns 0 when "end" was reached, non-zero on a syntax error
// or a parser stack beyond 10000 entries.
int yyparse();

// Number of whitespace-separated "box", "poly" and "circ" words in the file. An unreadable file
// prints "Error, fail to open: <path>" on standard error and ends the process with status 0.
int count_num_of_objects(const std::string& path);

// Reads an object-language file. Returns the number of objects and the parser's array of them
// (see g_obj); {0, nullptr} when the file has no "begin". An unreadable file ends the process
// as count_num_of_objects does.
std::pair<int, Object**> parse_objects(const std::string& path);

// Releases g_obj and the constants and resets the parser state (not the error count). Never fails.
void free_objects();

// Starts a new set of objects: frees the old one and allocates g_objnum objects and room for
// twice as many constants. Called by the grammar at "begin". Never fails.
void begin_objects();

// Opens the object of a statement head, by its name token's index: a fresh index takes the next
// free object and the name just read; an existing one is announced and overwritten. Sets curobj.
void open_object(int index, bool is_circle);

}  // namespace RW2D
