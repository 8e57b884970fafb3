// What the tests of the endgame tables share: the tables of tests/data, folders of made-up ones,
// and probes by position text.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "book_support.h"
#include "test_support.h"
#include "fathom/tbcore.h"
#include "fathom/tbmoves.h"
#include "fathom/tbprobe.h"
#include "fathom/tbtable.h"

// Runs in an empty folder with the options' defaults and no tables, and leaves no tables behind.
struct TablesTest : BookTest {
    void SetUp() override;
    void TearDown() override;
};

// The folders of tests/data with real tables, and with made-up ones to be used behind these.
std::string real_tables();
std::string made_up_tables();

// tb_init; returns the number in its line, -1 without a line. What it unmaps it reports on standard
// error, which is swallowed.
i32 use_tables(const std::string& path);

// The position of a text, with its half-move clock.
TbPos tb_pos_of(const std::string& fen);

// An answer of the tables, as text: "2", or "none".
std::string wdl_of(const std::string& fen);
std::string dtz_of(const std::string& fen);

// The first use of a material by a probe: what it prints on standard error, and its answer behind
// it: "Corrupted table.\nnone".
std::string wdl_errors(const std::string& fen);
std::string dtz_errors(const std::string& fen);
std::string dtz_errors(const TbPos& pos);

// What tb_probe_root gives: "class dtz move", or "none".
std::string root_of(const std::string& fen);

// The material key of a table name such as "KQvKR", its first side as first.
u64 tb_key_of_name(const std::string& name);

// The bytes of one of the real tables, named with its suffix.
std::string table_bytes(const std::string& file);

// The bytes of a sound file in which each section holds one value: for the two sides to move in
// tables of the suffix ".rtbw"; ".rtbz" takes none.
std::string one_value_table(
    const std::string& name, const std::string& suffix, i32 first = 0, i32 second = 0);

// Makes files of all 3- to 5-piece tables of tests/data in the current folder.
void copy_real_tables();
