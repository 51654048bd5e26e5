#include "solver/object_language.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "runtime/failure.h"

namespace RW2D {

const std::array<const char*, NUM_RESERVED_WORDS> ReservedWordsList = {
    "ang",   "ang1", "ang2",  "arc",  "at",       "auto", "begin",  "box",  "capa",
    "circ",  "copy", "cut",   "diel", "elements", "end",  "from",   "h",    "in",
    "indu",  "line", "move",  "para", "points",   "poly", "r",      "resi", "rho",
    "right", "to",   "touch", "up",   "volt",     "w",    "window", "with"};

Object** g_obj = nullptr;
int g_objnum = 0;
std::ifstream g_tpddlin;
std::int16_t g_errflg = 0;
long errlocate = 0;
Object* curobj = nullptr;
int curobjno = 0;
char curname[NAME_CHARS] = {};
bool constflag = false;
std::vector<std::string> constvarlist;
std::vector<double> constvaluelist;
int constvarnum = 0;

namespace {

constexpr int PARA_WORD = 21;  // position of "para" in ReservedWordsList

bool is_white(int c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool starts_word(int c) {
    return c != EOF && (std::isalpha(c) || c == '_');
}

bool continues_word(int c) {
    return c != EOF && (std::isalnum(c) || c == '_');
}

}  // namespace

int doalpha(const std::string& word, LexValue& value) {
    for (int k = 0; k < NUM_RESERVED_WORDS; ++k) {
        if (word == ReservedWordsList[k]) {
            constflag = k == PARA_WORD;
            return RESERVED_BASE + k;
        }
    }
    // Names are kept to 14 characters; a longer word is known by its first 14.
    const std::string key = word.substr(0, NAME_CHARS - 1);
    for (int i = 0; i < curobjno; ++i) {
        if (g_obj[i]->name == key) {
            value.index = i;
            return OBJECT;
        }
    }
    for (int i = 0; i < constvarnum; ++i) {
        if (constvarlist[i] == key) {
            value.index = i;
            return CONST;
        }
    }
    if (constflag) {
        constvarlist.push_back(key);
        constvaluelist.push_back(0.0);
        value.index = constvarnum++;
        return NEW_CONST;
    }
    std::snprintf(curname, sizeof curname, "%s", key.c_str());
    value.index = curobjno;
    return NEW_NAME;
}

int yylex(LexValue& value) {
    int c = g_tpddlin.get();
    while (is_white(c)) c = g_tpddlin.get();
    if (c == '/') {
        const int next = g_tpddlin.peek();
        if (next == '/') {
            // The character behind the comment's line end is used as it is: no white space or
            // comment is skipped before it.
            do {
                c = g_tpddlin.get();
            } while (c != '\n' && c != EOF);
            c = g_tpddlin.get();
        } else if (next == '*') {
            // The comment itself reads as a '/' token.
            g_tpddlin.get();
            int prev = 0;
            while ((c = g_tpddlin.get()) != EOF && !(prev == '*' && c == '/')) prev = c;
            return '/';
        }
    }
    if (c == 255 || c == EOF) return 0;
    if (std::isdigit(c)) {
        g_tpddlin.unget();
        g_tpddlin >> value.number;
        return NUMBER;
    }
    if (starts_word(c)) {
        std::string word(1, static_cast<char>(c));
        while (continues_word(g_tpddlin.peek())) word += static_cast<char>(g_tpddlin.get());
        return doalpha(word, value);
    }
    return c;
}

void yyerror(const char*) {
    ++g_errflg;
    errlocate = static_cast<long>(g_tpddlin.tellg());
    const int c = g_tpddlin.peek();
    std::printf("Error the %dth, CharLocate %ld  Current char is %c\n", g_errflg, errlocate, c);
}

void free_objects() {
    if (g_obj != nullptr) {
        for (int i = 0; i < g_objnum; ++i) delete g_obj[i];
        delete[] g_obj;
        g_obj = nullptr;
    }
    constvarlist.clear();
    constvaluelist.clear();
    constvarnum = 0;
    curobj = nullptr;
    curobjno = 0;
    curname[0] = '\0';
    constflag = false;
}

void begin_objects() {
    const int count = g_objnum;
    free_objects();
    g_objnum = count;
    g_obj = new Object*[g_objnum];
    for (int i = 0; i < g_objnum; ++i) g_obj[i] = new Object();
    constvarlist.reserve(2 * static_cast<std::size_t>(g_objnum));
    constvaluelist.reserve(2 * static_cast<std::size_t>(g_objnum));
}

void open_object(int index, bool is_circle) {
    if (index >= curobjno) {
        if (curobjno == g_objnum) {
            // More objects than the keyword count saw (a keyword glued to what follows it).
            Object** grown = new Object*[g_objnum + 1];
            for (int i = 0; i < g_objnum; ++i) grown[i] = g_obj[i];
            grown[g_objnum] = new Object();
            delete[] g_obj;
            g_obj = grown;
            ++g_objnum;
        }
        curobj = g_obj[curobjno++];
        curobj->name = curname;
    } else {
        std::printf("WARNING: This object name has been used!\n");
        std::printf("Old value will be replaced by new one!\n");
        curobj = g_obj[index];
    }
    curobj->is_circle = is_circle;
}

int count_num_of_objects(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        std::cerr << "Error, fail to open: " << path << std::endl;
        throw KARVEN::FatalError("Error, fail to open: " + path, true);
    }
    int count = 0;
    std::string word;
    while (in >> word) {
        if (word == "box" || word == "poly" || word == "circ") ++count;
    }
    return count;
}

std::pair<int, Object**> parse_objects(const std::string& path) {
    const int count = count_num_of_objects(path);
    free_objects();
    g_objnum = count;
    g_tpddlin.clear();
    g_tpddlin.open(path);
    yyparse();
    g_tpddlin.close();
    if (g_obj == nullptr) return {0, nullptr};
    return {g_objnum, g_obj};
}

}  // namespace RW2D
