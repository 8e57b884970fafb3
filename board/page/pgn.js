// What stands in a PGN: tags, the moves of the main line with their marks and comments, the result.

// Glyphs of a move by the number that they have in the format.
export const NAGS = { "!": 1, "?": 2, "!!": 3, "??": 4, "!?": 5, "?!": 6 }
const GLYPHS = Object.fromEntries(Object.entries(NAGS).map(([glyph, number]) => [number, glyph]))

const LONGEST = 1 << 20     // characters
const TAG = /^\s*\[\s*(\w+)\s+"((?:[^"\\\n]|\\.)*)"\s*\]/
const TOKEN = /\{([^}]*)\}|;([^\n]*)|\$(\d+)|[{()]|[^\s{();$]+/g
const RESULTS = ["1-0", "0-1", "1/2-1/2", "*"]
// What people write behind moves, besides glyphs.
const IGNORED = /^(?:\d+|e\.p\.|N|[±∓⩲⩱∞□=]|\+[-=]|[-=]\+|\+\/[-=]|[-=]\/\+)?$/

// The tags at the head of a text, and what stands behind them.
function readTags(text) {
    const tags = {}
    let rest = text
    for (let found = TAG.exec(rest); found; found = TAG.exec(rest)) {
        tags[found[1]] = found[2].replace(/\\(.)/g, "$1")
        rest = rest.slice(found[0].length)
    }
    return { tags, rest }
}

// A word that is no comment: a move with its number before and its glyph behind it, or either alone.
function takeWord(word, moves) {
    const text = word.replace(/^\d*(?:\.+|…)/, "")
    const glyph = /[!?]*$/.exec(text)[0]
    const move = text.slice(0, text.length - glyph.length)
    if (!IGNORED.test(move)) {
        moves.push({ text: move, mark: "", notes: [] })
    }
    if (glyph in NAGS && moves.length) {
        moves.at(-1).mark = glyph
    }
}

// { tags, moves, result }: a move has text, mark and notes; the moves are not looked at. Throws an
// Error with a sentence.
export function readPgn(text) {
    if (text.length > LONGEST) {
        throw new Error("a game of more than a million characters is not read")
    }
    const { tags, rest } = readTags(text.replace(/\r\n?/g, "\n").replace(/^%.*$/gm, ""))
    const moves = []
    let depth = 0       // of the variations around, which are passed over
    for (const [word, brace, line, nag] of rest.matchAll(TOKEN)) {
        const note = (brace ?? line)?.replace(/\}/g, ")").trim().replace(/\s+/g, " ")
        if (word === "{") {
            throw new Error("a comment has no end")
        } else if (word === "(") {
            depth += 1
        } else if (word === ")") {
            depth = Math.max(0, depth - 1)
        } else if (depth === 0 && note) {
            moves.at(-1)?.notes.push(note)
        } else if (depth === 0 && nag && moves.length) {
            moves.at(-1).mark = GLYPHS[nag] ?? moves.at(-1).mark
        } else if (depth === 0 && RESULTS.includes(word)) {
            return { tags, moves, result: word }
        } else if (depth === 0 && note === undefined && nag === undefined) {
            takeWord(word, moves)
        }
    }
    return { tags, moves, result: RESULTS.includes(tags.Result) ? tags.Result : "*" }
}
