#pragma once
// CtfInterpreter: owns the token stream of a CTF file, the element processors and the keyword
// table that selects them.
//
// Statement and table classes plug in by class name: a class registered with
// registerCtfProcessor (usually through CTF_REGISTER_PROCESSOR in its own .cpp, next to its
// virtual functions) is built by initProcessors in place of the generic stand-in that otherwise
// reads its statement. The keywords it serves are fixed by the keyword table below.
// The library is static, so a .cpp is linked only when something uses one of its symbols: keep
// the registration in the file that defines the class's virtual functions, which a reader that
// dynamic_casts to the class pulls in.

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "technology/ctf_element.h"
#include "technology/ctf_error.h"
#include "technology/ctf_token.h"

// Bytes of the read buffer; a file is read up to two bytes fewer, the rest is ignored.
inline constexpr std::size_t CTF_BUFFER_SIZE = 16u * 1024u * 1024u;
// Elements may nest this deep (a table inside a table ...); deeper input is rejected.
inline constexpr int CTF_MAX_ELEMENT_DEPTH = 256;

using CtfProcessorFactory = ElementProcessor* (*)();

// Makes initProcessors build the processor class `class_name` (e.g. "CtfConductor") with
// `factory`; a null factory brings back the stand-in. Returns the factory it replaces, or null.
CtfProcessorFactory registerCtfProcessor(const char* class_name, CtfProcessorFactory factory);

// Returns the factory registered for `class_name`, or null.
CtfProcessorFactory registeredCtfProcessor(const char* class_name);

// Registers `Class` (default-constructible, derived from ElementProcessor) under its own name at
// program start. Use at namespace scope in the class's .cpp.
#define CTF_REGISTER_PROCESSOR(Class)                           \
    [[maybe_unused]] static const bool ctf_registered_##Class = \
        (registerCtfProcessor(#Class, []() -> ElementProcessor* { return new Class; }), true)

class CtfInterpreter {
public:
    CtfInterpreter() = default;
    CtfInterpreter(const CtfInterpreter&) = delete;
    CtfInterpreter& operator=(const CtfInterpreter&) = delete;
    virtual ~CtfInterpreter();

    // Reads at most CTF_BUFFER_SIZE - 2 bytes of `in` and scans them into `stream`, cursor on
    // the first token. Returns 1; throws Ctf_Lexical_Error at the first byte no rule accepts.
    virtual int lexer(std::istream& in);

    // Creates the 41 processors (registered classes or stand-ins) and binds the 169 keywords.
    // Calling it again starts over with fresh processors.
    void initProcessors();

    // Binds `keyword` to `processor`, replacing any binding. Does not take ownership.
    void regKeyword(const char* keyword, ElementProcessor* processor);

    // Reads the element at the cursor with the processor of its keyword (or default_processor
    // for an unbound token) and returns that processor, cursor on the element's last token.
    // Throws Ctf_Syntax_Error "unknown keyword" when there is neither, and whatever the
    // processor throws.
    ElementProcessor* processElem();

    // Returns the processor created for the class `class_name` (e.g. "CtfKeyvalueTuple",
    // "CtfContact_gate_table"), or null before initProcessors or for an unknown name.
    ElementProcessor* processorOf(const std::string& class_name) const;

    // Returns the processor bound to `keyword`, or null.
    ElementProcessor* boundTo(const std::string& keyword) const;

    std::unordered_map<std::string, ElementProcessor*> keyword_table;
    ElementProcessor* default_processor = nullptr;
    TokenStream stream;
    std::vector<ElementProcessor*> processors;  // owns every processor
    std::unique_ptr<char[]> buffer;             // allocated by the first lexer call

private:
    void clearProcessors();

    std::unordered_map<std::string, ElementProcessor*> by_class_;
    int depth_ = 0;
};

// Binds a keyword to a processor for the life of this object and then restores the previous
// binding, or removes the keyword when it had none; also when the scope is left by an error.
class CtfKeywordBinding {
public:
    CtfKeywordBinding(CtfInterpreter* ci, const char* keyword, ElementProcessor* processor);
    ~CtfKeywordBinding();
    CtfKeywordBinding(const CtfKeywordBinding&) = delete;
    CtfKeywordBinding& operator=(const CtfKeywordBinding&) = delete;

private:
    CtfInterpreter* ci_;
    std::string keyword_;
    ElementProcessor* previous_;
    bool had_previous_;
};
