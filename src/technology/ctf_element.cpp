#include "technology/ctf_element.h"

#include <stdexcept>

#include "runtime/logger.h"
#include "technology/ctf_error.h"
#include "technology/ctf_interpreter.h"

bool ctfParseNumber(const std::string& text, double& value) {
    try {
        value = std::stod(text);
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    } catch (const std::out_of_range&) {
        return false;
    }
}

namespace {

[[noreturn]] void fail(CtfInterpreter* ci, const char* message, long index = -1) {
    throw Ctf_Syntax_Error(ci->stream, message, index);
}

// Reads `[name] {` after a list keyword; the cursor ends on "{". Errors point at the keyword.
void readListHead(CtfInterpreter* ci, std::string& name, std::int32_t has_name) {
    static const char* const kNoBrace = "expecting vector element list beginning with LEFT BRACE";
    TokenStream& ts = ci->stream;
    const long keyword_at = static_cast<long>(ts.current);
    if (!ts.next()) fail(ci, kNoBrace, keyword_at);
    if (has_name && ts.token() != "{") {
        name = ts.token();
        if (!ts.next()) fail(ci, kNoBrace, keyword_at);
    }
    if (ts.token() != "{") fail(ci, kNoBrace, keyword_at);
}

// Steps into a list body; returns false on the closing "}".
bool nextListItem(CtfInterpreter* ci) {
    if (!ci->stream.next()) fail(ci, "cannot find the end of the vector");
    return ci->stream.token() != "}";
}

}  // namespace

ElementProcessor::~ElementProcessor() = default;

ElementProcessor* CtfStandalone::translate(CtfInterpreter* ci) {
    keyword = ci->stream.token();
    return this;
}

ElementProcessor* CtfNumberAttri::translate(CtfInterpreter* ci) {
    keyword = ci->stream.token();
    value = 0;
    if (!ci->stream.next()) fail(ci, "expecting attribute value");
    if (!ctfParseNumber(ci->stream.token(), value))
        fail(ci, "expecting number value for the attribute");
    return this;
}

ElementProcessor* CtfStringAttri::translate(CtfInterpreter* ci) {
    keyword = ci->stream.token();
    value.clear();
    if (!ci->stream.next()) fail(ci, "expecting attribute value");
    value = ci->stream.token();
    return this;
}

ElementProcessor* CtfVector::translate(CtfInterpreter* ci) {
    keyword = ci->stream.token();
    name.clear();
    values.clear();
    readListHead(ci, name, has_name);
    while (nextListItem(ci)) {
        double v = 0;
        if (!ctfParseNumber(ci->stream.token(), v))
            fail(ci, "invalid vector elements detected (only number value is allowed)");
        values.push_back(v);
    }
    return this;
}

int CtfVector::isAscent() const {
    for (std::size_t i = 1; i < values.size(); ++i)
        if (values[i - 1] > values[i]) return 0;
    return 1;
}

ElementProcessor* CtfStringVector::translate(CtfInterpreter* ci) {
    keyword = ci->stream.token();
    name.clear();
    values.clear();
    readListHead(ci, name, has_name);
    while (nextListItem(ci)) values.push_back(ci->stream.token());
    return this;
}

ElementProcessor* CtfTuple::translate(CtfInterpreter* ci) {
    values.clear();
    TokenStream& ts = ci->stream;
    if (!ts.next()) fail(ci, "expecting tuple elements");
    while (ts.token() != ")") {
        double v = 0;
        if (!ctfParseNumber(ts.token(), v))
            fail(ci, "invalid tuple element detected (only number value is allowed)");
        values.push_back(v);
        if (!ts.next()) fail(ci, "cannot find the end of the tuple");
    }
    return this;
}

ElementProcessor* CtfKeyvalueTuple::translate(CtfInterpreter* ci) {
    key.clear();
    value = 0;
    TokenStream& ts = ci->stream;
    if (!ts.next()) fail(ci, "expecting key name");
    key = ts.token();
    if (!ts.next()) fail(ci, "expecting value");
    if (!ctfParseNumber(ts.token(), value)) fail(ci, "invalid value (only numbers are allowed)");
    if (!ts.next() || ts.token() != ")") fail(ci, "cannot find the end of the tuple");
    return this;
}

ElementProcessor* CtfStrPairTuple::translate(CtfInterpreter* ci) {
    first.clear();
    second.clear();
    TokenStream& ts = ci->stream;
    if (!ts.next()) fail(ci, "expecting string");
    first = ts.token();
    if (!ts.next()) fail(ci, "expecting second string");
    second = ts.token();
    if (!ts.next()) fail(ci, "cannot find the end of the tuple");
    if (ts.token() != ")") fail(ci, "only two string elements are allowed in the tuple");
    return this;
}

ElementProcessor* CtfTuplevector::translate(CtfInterpreter* ci) {
    keyword = ci->stream.token();
    name.clear();
    tuples.clear();
    readListHead(ci, name, has_name);
    while (nextListItem(ci)) {
        const long start = static_cast<long>(ci->stream.current);
        auto* tuple = dynamic_cast<CtfTuple*>(ci->processElem());
        if (!tuple) fail(ci, "expecting tuple beginning with LEFT PARENTHESIS", start);
        tuples.push_back(tuple->values);
    }
    return this;
}

int CtfTuplevector::checkDim(int n) const {
    for (const auto& t : tuples)
        if (static_cast<long>(t.size()) != n) return 0;
    return 1;
}

ElementProcessor* CtfTuplemap::translate(CtfInterpreter* ci) {
    keyword = ci->stream.token();
    name.clear();
    entries.clear();
    readListHead(ci, name, has_name);
    CtfKeywordBinding pair_reader(ci, "(", ci->processorOf("CtfKeyvalueTuple"));
    while (nextListItem(ci)) {
        const long start = static_cast<long>(ci->stream.current);
        auto* pair = dynamic_cast<CtfKeyvalueTuple*>(ci->processElem());
        if (!pair) fail(ci, "expecting key-value pairs beginning with LEFT PARENTHESIS", start);
        entries[pair->key] = pair->value;
    }
    return this;
}

ElementProcessor* CtfStrPairVector::translate(CtfInterpreter* ci) {
    keyword = ci->stream.token();
    name.clear();
    pairs.clear();
    readListHead(ci, name, has_name);
    CtfKeywordBinding pair_reader(ci, "(", ci->processorOf("CtfStrPairTuple"));
    while (nextListItem(ci)) {
        const long start = static_cast<long>(ci->stream.current);
        auto* pair = dynamic_cast<CtfStrPairTuple*>(ci->processElem());
        if (!pair) fail(ci, "expecting string tuple beginning with LEFT PARENTHESIS", start);
        pairs.emplace_back(pair->first, pair->second);
    }
    return this;
}

void Ctfstruct::processHead(CtfInterpreter* ci) {
    static const char* const kNoBrace = "expecting table content beginning with LEFT BRACE";
    TokenStream& ts = ci->stream;
    keyword = ts.token();
    name.clear();
    if (!ts.next()) fail(ci, kNoBrace);
    if (has_name && ts.token() != "{") {
        name = ts.token();
        if (!ts.next()) fail(ci, kNoBrace);
    }
    if (ts.token() != "{") fail(ci, kNoBrace);
}

bool Ctfstruct::readField(CtfInterpreter* ci, ElementProcessor*& element, long& start) {
    if (!ci->stream.next()) fail(ci, "cannot find the end of the table");
    if (ci->stream.token() == "}") return false;
    start = static_cast<long>(ci->stream.current);
    element = ci->processElem();
    return true;
}

void Ctfstruct::warnUnsupportedField(TokenStream& stream, long index) {
    const auto at = static_cast<std::uint64_t>(index);
    const CtfContext where = stream.contextAt(at);
    PLOG::log(3) << "CTF file: unsupported field \"" << stream.tokenAt(at)
                 << "\" in the table, line: " << static_cast<unsigned long>(where.first + 1)
                 << ", pos: " << static_cast<unsigned long>(where.second) << "." << PLOG::endl;
}

ElementProcessor* CtfDummystruct::translate(CtfInterpreter* ci) {
    processHead(ci);
    TokenStream& ts = ci->stream;
    long depth = 1;
    while (depth > 0) {
        if (!ts.next()) fail(ci, "cannot find the end of the table");
        if (ts.token() == "{")
            ++depth;
        else if (ts.token() == "}")
            --depth;
    }
    return this;
}

CtfPendingTable::CtfPendingTable(std::int32_t named, bool head_tuples) : head_tuples(head_tuples) {
    has_name = named;
}

void CtfPendingTable::processHead(CtfInterpreter* ci) {
    if (!head_tuples) {
        Ctfstruct::processHead(ci);
        return;
    }
    // `keyword ( .. ) ( .. ) ... {`: skip the groups, then the usual brace.
    TokenStream& ts = ci->stream;
    keyword = ts.token();
    name.clear();
    if (!ts.next()) fail(ci, "expecting table content beginning with LEFT BRACE");
    while (ts.token() == "(") {
        do {
            if (!ts.next()) fail(ci, "cannot find the end of the tuple");
        } while (ts.token() != ")");
        if (!ts.next()) fail(ci, "expecting table content beginning with LEFT BRACE");
    }
    if (ts.token() != "{") fail(ci, "expecting table content beginning with LEFT BRACE");
}
