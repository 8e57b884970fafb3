// The program vesk-data: what is in games, positions, books and tables, and what was lost of them.
#include "data/words.h"

int main(int argc, char** argv)
{
    if (argc < 2) {
        return run_data_help({});
    }
    return run_data_word({ argv + 1, static_cast<size_t>(argc - 1) });
}
