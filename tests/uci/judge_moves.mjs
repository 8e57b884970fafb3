// Asks an independent rules library whether replies were legal.
//
//     node judge_moves.mjs REFEREE_FOLDER <LINES
//
// Each line of input is a JSON record: "positions", of which one was searched, each with a "fen" and
// the "moves" played from there, and "reply", the engine's move and the one that it would ponder
// on. An empty reply says that there is no move, and only a position with "mustMove" false bears it
// if there is one. The record is printed again if the reply fits none of the positions. Status 1 if
// one was printed.

import { createRequire } from "node:module";
import { readFileSync } from "node:fs";
import { resolve } from "node:path";

const require = createRequire(resolve(process.argv[2]) + "/");
const { Chess } = require("chess.js");

function play(board, word) {
    try {
        board.move({ from: word.slice(0, 2), to: word.slice(2, 4), promotion: word[4] });
        return true;
    } catch {
        return false;
    }
}

function fits(position, reply) {
    const board = new Chess(position.fen);
    if (!position.moves.every(word => play(board, word))) {
        throw new Error(`the driver sent an illegal move: ${JSON.stringify(position)}`);
    }
    if (reply.length === 0) {
        return !position.mustMove || board.moves().length === 0;
    }
    return reply.every(word => play(board, word));
}

let wrong = 0;
let count = 0;
for (const line of readFileSync(0, "utf8").split("\n")) {
    if (line === "") {
        continue;
    }
    ++count;
    const { positions, reply } = JSON.parse(line);
    if (!positions.some(position => fits(position, reply))) {
        ++wrong;
        console.log(line);
    }
}
console.log(`${count} replies, ${wrong} wrong`);
process.exit(wrong === 0 ? 0 : 1);
