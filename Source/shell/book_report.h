// What a book knows of a position, as the user sees it.
#pragma once

#include "book/book.h"

// Prints the entries of a choice and, at the console, the move. Nothing for an empty choice.
void report_book_choice(const BookChoice* choice);
