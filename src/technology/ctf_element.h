#pragma once
// Element processors of the CTF language. An element starts with a keyword; the processor bound
// to it consumes the element's tokens and keeps the result until the next element of the same
// keyword is read. Statement classes derive from Ctfstruct (or CtfTuplevector) and are told
// apart from the generic ones by run-time type (dynamic_cast).

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

class CtfInterpreter;
struct TokenStream;

// Converts a token by std::stod rules (a leading number is enough: "1.5abc" gives 1.5).
// Returns false when no number leads the text or the value is out of range.
bool ctfParseNumber(const std::string& text, double& value);

class ElementProcessor {
public:
    virtual ~ElementProcessor();
    // Reads the element whose keyword is the current token, leaving the cursor on its last
    // token. Returns this processor; throws Ctf_Syntax_Error on a malformed element.
    virtual ElementProcessor* translate(CtfInterpreter* ci) = 0;
};

// Flag: `keyword`.
class CtfStandalone : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::string keyword;
};

// Number attribute: `keyword value`.
class CtfNumberAttri : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::string keyword;
    double value = 0;
};

// String attribute: `keyword value`, the value being any token.
class CtfStringAttri : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::string keyword;
    std::string value;
};

// Number vector: `keyword [name] { v v ... }`; the name only when has_name is set.
class CtfVector : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    // Returns 1 when no value is greater than its successor (equal neighbours pass), else 0.
    int isAscent() const;
    std::string keyword;
    std::string name;
    std::vector<double> values;
    std::int32_t has_name = 0;
};

// String vector: `keyword [name] { s s ... }`.
class CtfStringVector : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::string keyword;
    std::string name;
    std::vector<std::string> values;
    std::int32_t has_name = 0;
};

// Tuple, the keyword "(": `( v v ... )`.
class CtfTuple : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::vector<double> values;
};

// Key-value tuple `( key value )`, bound to "(" while a key-value map is read.
class CtfKeyvalueTuple : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::string key;
    double value = 0;
};

// String pair `( first second )`, bound to "(" while a string-pair vector is read.
class CtfStrPairTuple : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::string first;
    std::string second;
};

// Tuple vector: `keyword [name] { ( ... ) ( ... ) ... }`.
class CtfTuplevector : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    // Returns 1 when every tuple has exactly n values (an empty table passes), else 0.
    int checkDim(int n) const;
    std::string keyword;
    std::string name;
    std::vector<std::vector<double>> tuples;
    std::int32_t has_name = 0;
};

// Key-value map: `keyword [name] { ( key value ) ... }`; a repeated key overwrites.
class CtfTuplemap : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::string keyword;
    std::string name;
    std::unordered_map<std::string, double> entries;
    std::int32_t has_name = 0;
};

// String-pair vector: `keyword [name] { ( a b ) ... }`.
class CtfStrPairVector : public ElementProcessor {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
    std::string keyword;
    std::string name;
    std::vector<std::pair<std::string, std::string>> pairs;
    std::int32_t has_name = 0;
};

// Table: `keyword [name] { ... }`. Statement classes derive from it and read their body with
// processHead and then readField until it returns false.
class Ctfstruct : public ElementProcessor {
public:
    // Stores the keyword, clears and reads the optional name and leaves the cursor on "{".
    // Throws "expecting table content beginning with LEFT BRACE" when the brace is missing.
    virtual void processHead(CtfInterpreter* ci);

    // Steps to the next body element. Returns false when it is the closing "}" (cursor on it);
    // otherwise reads the element with processElem, returns it in `element` with the index of
    // its first token in `start`, and returns true. Throws "cannot find the end of the table"
    // when the tokens end first.
    bool readField(CtfInterpreter* ci, ElementProcessor*& element, long& start);

    // Logs at warning level that the field at token `index` is not supported in this table.
    void warnUnsupportedField(TokenStream& stream, long index);

    std::string name;
    std::string keyword;
    std::int32_t has_name = 1;
};

// Ignored table: the head of a table, then everything up to the matching "}".
class CtfDummystruct : public Ctfstruct {
public:
    ElementProcessor* translate(CtfInterpreter* ci) override;
};

// Stand-in for a statement or table class that is not plugged in: it reads the form of that
// statement generically (head, then a brace-balanced body) and stores nothing. With
// head_tuples set, parenthesised groups may stand between the keyword and the brace.
class CtfPendingTable : public CtfDummystruct {
public:
    CtfPendingTable(std::int32_t named, bool head_tuples);
    void processHead(CtfInterpreter* ci) override;
    bool head_tuples;
};

// Stand-in for a tuple-table class that is not plugged in: a named tuple vector.
class CtfPendingTuplevector : public CtfTuplevector {
public:
    CtfPendingTuplevector() { has_name = 1; }
};
