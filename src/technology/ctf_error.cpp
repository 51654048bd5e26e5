#include "technology/ctf_error.h"

#include "technology/ctf_token.h"

Ctf_Error::~Ctf_Error() = default;

Ctf_Error Ctf_Error::emptyFile() {
    return Ctf_Error("CTF error: empty ctf file.");
}

namespace {

std::string syntaxText(TokenStream& stream, const char* message, long token_index) {
    if (token_index >= 0) stream.current = static_cast<std::uint64_t>(token_index);
    const CtfContext where = stream.contextAt(stream.current);
    std::string text = "CTF error at \"" + stream.token() +
                       "\", line: " + std::to_string(where.first + 1) +
                       ", pos: " + std::to_string(where.second);
    if (message) {
        text += ", ";
        text += message;
    }
    text += ".\n";
    return text;
}

}  // namespace

Ctf_Syntax_Error::Ctf_Syntax_Error(TokenStream& stream, const char* message, long token_index)
    : Ctf_Error(syntaxText(stream, message, token_index)) {}

Ctf_Lexical_Error::Ctf_Lexical_Error(int line, int pos)
    : Ctf_Error("Unexpected character at line: " + std::to_string(static_cast<long>(line) + 1) +
                ", pos: " + std::to_string(pos) + ".\n") {}
