#pragma once
// Errors of the CTF reader. All are thrown by value and caught as Ctf_Error&; the text is
// complete, ready to be logged.

#include <string>

struct TokenStream;

class Ctf_Error {
public:
    explicit Ctf_Error(std::string message) : text(std::move(message)) {}
    virtual ~Ctf_Error();

    // Returns the error for a file without tokens: "CTF error: empty ctf file."
    static Ctf_Error emptyFile();

    // Returns the full text.
    const char* what() const noexcept { return text.c_str(); }

    std::string text;
};

// A statement that does not fit the language, reported at a token of the stream.
class Ctf_Syntax_Error : public Ctf_Error {
public:
    // Reports at the current token when token_index is -1; any index >= 0 first moves the
    // stream's cursor there. A null message leaves the text without one.
    Ctf_Syntax_Error(TokenStream& stream, const char* message, long token_index);
};

// A byte that no scanner rule accepts; line and position count from 0.
class Ctf_Lexical_Error : public Ctf_Error {
public:
    Ctf_Lexical_Error(int line, int pos);
};
