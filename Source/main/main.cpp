// The program vesk: the engine and nothing around it.
#include "main/engine.h"

int main(int argc, char** argv)
{
    return run_engine(argc, argv);
}
