/* Grammar of the object language. The scanner, the parser state and the object bookkeeping live
   in object_language.cpp; the actions here only do arithmetic and fill the current object. */

%define api.prefix {objlang_}
%define api.token.prefix {TOK_}
%define parse.error simple

%code requires {
/* A point of the grammar: plain data, so that the value stack stays trivially copyable. */
struct ObjLangPair {
    double x;
    double y;
};
}

%code top {
/* Before the skeleton's renaming macros, which would otherwise rename RW2D::yyparse and friends. */
#include <cstdio>

#include "solver/object_language.h"
}

%code {
/* Room for deep expressions without letting a runaway input take all memory. */
#define YYINITDEPTH 200
#define YYMAXDEPTH 10000

int objlang_lex();
void objlang_error(const char* message);

namespace {

RW2D::Vector2D point(const ObjLangPair& p) {
    return RW2D::Vector2D{p.x, p.y};
}

}  // namespace
}

%union {
    double num;
    int idx;
    ObjLangPair pt;
}

/* Reserved words: token 300 + position in ReservedWordsList. */
%token ANG 300 ANG1 301 ANG2 302 ARC 303 AT 304 AUTO 305 BEGIN 306 BOX 307 CAPA 308 CIRC 309
%token COPY 310 CUT 311 DIEL 312 ELEMENTS 313 END 314 FROM 315 H 316 IN 317 INDU 318 LINE 319
%token MOVE 320 PARA 321 POINTS 322 POLY 323 R 324 RESI 325 RHO 326 RIGHT 327 TO 328 TOUCH 329
%token UP 330 VOLT 331 W 332 WINDOW 333 WITH 334
%token <idx> NEW_CONST 400 CONST 401 NEW_NAME 500 OBJECT 501
%token <num> NUMBER 601

%type <num> sum product
%type <idx> name
%type <pt> pair

%left '+' '-'
%left '*' '/'
%precedence UMINUS

%%

program: begin statements end
       ;

begin: BEGIN { RW2D::begin_objects(); }
     ;

statements: %empty
          | statements statement
          ;

end: END {
         if (RW2D::g_errflg != 0) std::printf("There are %d errors!\n", RW2D::g_errflg);
     }
   ;

statement: parameters
         | box
         | CAPA
         | polygon
         | circle
         ;

parameters: PARA assignment
          | parameters ';' assignment
          ;

assignment: NEW_CONST '=' sum { RW2D::constvaluelist[$1] = $3; }
          ;

sum: product
   | sum '+' sum { $$ = $1 + $3; }
   | sum '-' sum { $$ = $1 - $3; }
   ;

product: NUMBER
       | CONST { $$ = RW2D::constvaluelist[$1]; }
       | '(' sum ')' { $$ = $2; }
       | product '*' product { $$ = $1 * $3; }
       | product '/' product { $$ = $1 / $3; }
       | '-' product %prec UMINUS { $$ = -$2; }
       ;

polygon: poly_head property corners
       ;

circle: circ_head property circle_body
      ;

box: box_head property box_body
   ;

poly_head: POLY name ';' { RW2D::open_object($2, false); }
         ;

box_head: BOX name ';' { RW2D::open_object($2, false); }
        ;

circ_head: CIRC name ';' { RW2D::open_object($2, true); }
         ;

property: VOLT '=' sum ';' {
              RW2D::curobj->type = RW2D::Object::CONDUCTOR;
              RW2D::curobj->value = $3;
          }
        | DIEL '=' sum ';' {
              RW2D::curobj->type = RW2D::Object::MEDIUM;
              RW2D::curobj->value = $3;
          }
        ;

corners: '(' pair ')' ',' '(' pair ')' ',' '(' pair ')' ',' '(' pair ')' {
             RW2D::curobj->points = {point($2), point($6), point($10), point($14)};
             RW2D::curobj->radius = 0.0;
         }
       ;

box_body: AT '(' pair ')' ';' W '=' sum ';' H '=' sum {
              const double x = $3.x, y = $3.y, w = $8, h = $12;
              RW2D::curobj->points = {RW2D::Vector2D{x, y}, RW2D::Vector2D{x + w, y},
                                      RW2D::Vector2D{x + w, y + h}, RW2D::Vector2D{x, y + h}};
              RW2D::curobj->radius = 0.0;
          }
        ;

circle_body: AT '(' pair ')' ';' R '=' sum {
                 RW2D::curobj->points = {point($3), RW2D::Vector2D{}, RW2D::Vector2D{},
                                         RW2D::Vector2D{}};
                 RW2D::curobj->radius = $8;
             }
           ;

name: NEW_NAME
    | OBJECT
    ;

pair: sum ',' sum { $$ = ObjLangPair{$1, $3}; }
    ;

%%

/* The scanner and the error report are RW2D's; the skeleton's renaming macros would reach them. */
#undef yylex
#undef yyerror
#undef yyparse

static_assert(TOK_BEGIN == RW2D::RESERVED_BASE + 6 && TOK_WITH == RW2D::RESERVED_BASE + 34);
static_assert(int{TOK_NEW_CONST} == int{RW2D::NEW_CONST} && int{TOK_CONST} == int{RW2D::CONST});
static_assert(int{TOK_NEW_NAME} == int{RW2D::NEW_NAME} && int{TOK_OBJECT} == int{RW2D::OBJECT});
static_assert(int{TOK_NUMBER} == int{RW2D::NUMBER});

int objlang_lex() {
    RW2D::LexValue value;
    const int token = RW2D::yylex(value);
    if (token == TOK_NUMBER) {
        objlang_lval.num = value.number;
    } else {
        objlang_lval.idx = value.index;
    }
    return token;
}

void objlang_error(const char* message) {
    RW2D::yyerror(message);
}

int RW2D::yyparse() {
    return objlang_parse();
}
