// Scores: how they are written, and what they mean for the game.

// Of games of the engine against itself: the factor of the logistic curve for a centipawn.
const FACTOR = 0.0053
// How much of the chances a move must lose for its mark.
const MARKS = [[0.2, "??"], [0.12, "?"], [0.06, "?!"]]

// A line's score from white's view: { cp } or { mate, won }, with depth.
// won is 1 where White mates, in so many moves, and -1 where Black does: mate in 0 has no sign.
export function whiteView(line, turn) {
    const sign = turn === "w" ? 1 : -1
    const value = { depth: line.depth ?? 0 }
    if (line.mate !== undefined) {
        value.mate = Math.abs(line.mate)
        value.won = line.mate > 0 ? sign : -sign
    } else {
        value.cp = sign * line.cp
    }
    return value
}

export function scoreText(value) {
    if (!value) {
        return ""
    }
    if (value.mate !== undefined) {
        return value.mate === 0 ? "#" : `${value.won > 0 ? "+" : "-"}M${value.mate}`
    }
    const sign = value.cp > 0 ? "+" : value.cp < 0 ? "-" : ""
    return `${sign}${(Math.abs(value.cp) / 100).toFixed(2)}`
}

// What a comment of a saved game says, scoreText and a depth, as a score again, or null. A mate that
// stands on the board is that of the side which moved.
export function readScore(text, isWhite) {
    const found = /^([+-]?)(?:(\d{1,4}\.\d\d)|M(\d{1,3})|#)\/(\d{1,3})$/.exec(text)
    if (!found) {
        return null
    }
    const [, sign, pawns, mate, depth] = found
    const side = sign === "-" ? -1 : 1
    return pawns ? { cp: side * Math.round(100 * Number(pawns)), depth: Number(depth) }
        : { mate: Number(mate ?? 0), won: mate ? side : isWhite ? 1 : -1, depth: Number(depth) }
}

// White's expectation, 0 to 1.
export function chanceOf(value) {
    if (value.mate !== undefined) {
        return value.won > 0 ? 1 : 0
    }
    return 1 / (1 + Math.exp(-FACTOR * value.cp))
}

// The mark of a move that led from one score to the other.
export function markOf(before, after, isWhite) {
    if (!before || !after) {
        return ""
    }
    const lost = (chanceOf(before) - chanceOf(after)) * (isWhite ? 1 : -1)
    return MARKS.find(([least]) => lost >= least)?.[1] ?? ""
}

export const centipawns = value =>
    `${value > 0 ? "+" : value < 0 ? "−" : ""}${(Math.abs(value) / 100).toFixed(2)}`
