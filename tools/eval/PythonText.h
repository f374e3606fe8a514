// Python texts that kel-eval sends on the user's behalf. All are expressions or statements of
// ASCII, whatever they quote.
#pragma once

#include <string>
#include <vector>

// The bytes as a literal of Python's str.
std::string pythonLiteral( std::string const& bytes );

// What evaluates or executes the pieces of text in a list of the agent's, and removes the list.
std::string collectedText( std::string const& variable, bool isExpression );

// What runs lines of a prompt: its value is "?" if lines are missing, else "=" and the repr of an
// expression's value, unless that is None.
std::string promptText( std::string const& lines );

// The failure of such a text without what it adds to the traceback.
std::string promptFailure( std::string const& failure );

// What gives the names, a line each, that a word of the prompt may become: those of the agent's
// __main__ and the language, or the attributes of a dotted word.
std::string namesText( std::string const& word );

// Those names, with what stands before the last dot of the word.
std::vector< std::string > namesOf( std::string const& word, std::string const& lines );
