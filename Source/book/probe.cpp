// Looking up a position in an opening book. This build reads no books: no position has a move.
#include "book/book.h"

Move book_probe(Position*, const char*)
{
    return NoMove;
}
