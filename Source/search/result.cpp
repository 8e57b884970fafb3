// The storage of the result: one search runs at a time.
#include "search/result.h"

constinit SearchResult search_result = {};
