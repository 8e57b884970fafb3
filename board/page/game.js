// The game on the board: its moves, the place that is looked at, and how it goes into and out of
// files. The rules are those of chess.js.

import { Chess, DEFAULT_POSITION, validateFen } from "/chess/dist/esm/chess.js"
import { NAGS, readPgn } from "./pgn.js"
import { readScore, scoreText } from "./score.js"

export { DEFAULT_POSITION }
const LINE = 80
const MOST_FIGURES = 4

// Where king and rook must stand for each castling right.
const HOMES = { K: ["e1", "h1", "w"], Q: ["e1", "a1", "w"], k: ["e8", "h8", "b"],
    q: ["e8", "a8", "b"] }

// What is wrong with a FEN, or null.
export function findFault(fen) {
    const { ok, error } = validateFen(fen)
    if (!ok) {
        return error.replace(/^Invalid FEN: /, "")
    }
    if (fen.split(" ").slice(4).some(number => number.length > MOST_FIGURES)) {
        return `a number of moves has more than ${MOST_FIGURES} figures`
    }
    const rules = new Chess(fen)
    for (const right of fen.split(" ")[2].replace("-", "")) {
        const [king, rook, color] = HOMES[right]
        const stands = (square, type) => rules.get(square)?.type === type
            && rules.get(square).color === color
        if (!stands(king, "k") || !stands(rook, "r")) {
            return `castling (${right}) needs the king on ${king} and a rook on ${rook}`
        }
    }
    const board = fen.split(" ")[0]
    if (Math.max(board.replace(/[^A-Z]/g, "").length, board.replace(/[^a-z]/g, "").length) > 16) {
        return "a side has more than sixteen pieces"
    }
    const [king] = rules.findPiece({ type: "k", color: rules.turn() === "w" ? "b" : "w" })
    return rules.isAttacked(king, rules.turn()) ? "the side that has just moved is in check" : null
}

// A FEN with the fields that people leave out.
export function completeFen(text) {
    const fields = text.trim().split(/\s+/)
    return [...fields, ...["w", "-", "-", "0", "1"].slice(fields.length - 1)].slice(0, 6).join(" ")
}

// Plays a move as people or programs write it, or a record of chess.js. Null if it is not legal.
function playText(rules, text) {
    const squares = typeof text === "string"
        && /^([a-h][1-8])-?([a-h][1-8])(?:=?([qrbn]))?$/i.exec(text)?.slice(1)
            .map(part => part?.toLowerCase())
    if (squares) {
        return playSquares(rules, ...squares)
    }
    // A letter that is small by mistake; a b is a pawn where it can be.
    const others = typeof text === "string"
        ? [text.replace(/^[nbrqk]/, letter => letter.toUpperCase()), text.toUpperCase(),
            text.replace(/=?[qrbn]$/, letter => letter.toUpperCase())] : []
    if (text === "--") {
        return null     // chess.js would let the side pass
    }
    for (const word of [text, ...others]) {
        try {
            return rules.move(word, { strict: false })
        } catch {
            // The next reading.
        }
    }
    return null
}

// From square to square; castling also as the king's way to the rook.
function playSquares(rules, from, to, promotion) {
    const [king, rook] = [rules.get(from), rules.get(to)]
    const isCastling = king?.type === "k" && rook?.type === "r" && king.color === rook.color
    try {
        return isCastling ? rules.move(to > from ? "O-O" : "O-O-O")
            : rules.move({ from, to, promotion })
    } catch {
        return null
    }
}

// A move of chess.js as the game keeps it.
function plyOf(move, more = {}) {
    return { uci: move.lan, san: move.san, fen: move.after, from: move.from, to: move.to,
        color: move.color, eval: null, mark: "", note: "", ...more }
}

export class Game extends EventTarget {
    constructor() {
        super()
        this.reset()
    }

    // An empty game from a position. Throws if it is none.
    reset(fen = DEFAULT_POSITION, tags = {}) {
        this.rules = new Chess(fen)
        this.start = fen
        this.tags = tags
        this.plies = []
        this.ply = 0            // half-moves behind which the board stands
        this.result = "*"
        this.reason = ""
        this.startEval = null   // of the position before the first move
        this.emit("game")
    }

    emit(type) {
        this.dispatchEvent(new Event(type))
    }

    get fen() {
        return this.fenAt(this.ply)
    }

    fenAt(ply) {
        return ply > 0 ? this.plies[ply - 1].fen : this.start
    }

    get isAtEnd() {
        return this.ply === this.plies.length
    }

    get lastMove() {
        return this.ply > 0 ? this.plies[this.ply - 1] : null
    }

    turnAt(ply) {
        return this.fenAt(ply).split(" ")[1]
    }

    evalAt(ply) {
        return ply > 0 ? this.plies[ply - 1]?.eval ?? null : this.startEval
    }

    setEval(ply, value) {
        if (ply > 0 && ply <= this.plies.length) {
            this.plies[ply - 1].eval = value
        } else if (ply === 0) {
            this.startEval = value
        }
    }

    go(ply) {
        const place = Math.max(0, Math.min(ply, this.plies.length))
        if (place !== this.ply) {
            this.ply = place
            this.emit("ply")
        }
    }

    // Adds a move of chess.js to the list.
    record(move) {
        this.plies.push(plyOf(move))
    }

    // Plays a move at the place that is looked at: SAN, or a word like e2e4. What came behind is
    // dropped, unless it was this very move. Null if it is not legal, and nothing has changed.
    play(text) {
        const move = playText(this.isAtEnd ? this.rules : new Chess(this.fen), text)
        if (!move) {
            return null
        }
        if (!this.isAtEnd) {
            if (this.plies[this.ply].uci === move.lan) {
                this.go(this.ply + 1)
                return move
            }
            this.cut(this.ply)
            this.rules.move(move.san)
        }
        this.record(move)
        this.ply = this.plies.length
        this.result = "*"
        this.reason = ""
        this.judge()
        this.emit("game")
        return move
    }

    // Drops all moves from there on.
    cut(ply) {
        while (this.plies.length > ply) {
            this.plies.pop()
            this.rules.undo()
        }
        this.result = "*"
        this.reason = ""
        this.ply = Math.min(this.ply, ply)
    }

    takeBack(count) {
        this.cut(Math.max(0, this.plies.length - count))
        this.ply = this.plies.length
        this.emit("game")
    }

    // How the game stands by the rules.
    judge() {
        const { rules } = this
        if (rules.isCheckmate()) {
            this.end(rules.turn() === "w" ? "0-1" : "1-0", "checkmate")
        } else if (rules.isStalemate()) {
            this.end("1/2-1/2", "stalemate")
        } else if (rules.isInsufficientMaterial()) {
            this.end("1/2-1/2", "nothing left to mate with")
        } else if (rules.isThreefoldRepetition()) {
            this.end("1/2-1/2", "the position came three times")
        } else if (rules.isDrawByFiftyMoves()) {
            this.end("1/2-1/2", "fifty moves without progress")
        }
    }

    end(result, reason) {
        this.result = result
        this.reason = reason
    }

    get isOver() {
        return this.result !== "*"
    }

    // The legal moves of the position that is looked at.
    legalMoves(square) {
        const rules = this.isAtEnd ? this.rules : new Chess(this.fen)
        return rules.moves({ verbose: true, ...(square ? { square } : {}) })
    }

    // A line of words like e2e4 as people write it, with move numbers, at most so many moves.
    lineText(ply, moves, most = 12) {
        const rules = new Chess(this.fenAt(ply))
        const words = []
        for (const word of moves.slice(0, most)) {
            const number = rules.moveNumber()
            if (rules.turn() === "w") {
                words.push(`${number}.`)
            } else if (words.length === 0) {
                words.push(`${number}…`)
            }
            try {
                words.push(rules.move({ from: word.slice(0, 2), to: word.slice(2, 4),
                    promotion: word[4] }).san)
            } catch {
                break
            }
        }
        return words.join(" ")
    }

    numberOf(ply) {
        const fields = this.start.split(" ")
        const first = 2 * (Number(fields[5]) || 1) - (fields[1] === "w" ? 2 : 1)
        const half = first + ply - 1
        return { number: Math.floor(half / 2) + 1, isWhite: half % 2 === 0 }
    }

    // ---- Files.

    toPgn() {
        const now = new Date()
        const date = [now.getFullYear(), now.getMonth() + 1, now.getDate()]
            .map(part => String(part).padStart(2, "0")).join(".")
        const tags = { Event: "?", Site: "?", Date: date, Round: "?", White: "?", Black: "?",
            ...this.tags, Result: this.result }
        if (this.start !== DEFAULT_POSITION) {
            Object.assign(tags, { SetUp: "1", FEN: this.start })
        }
        const words = []
        this.plies.forEach((ply, index) => {
            const { number, isWhite } = this.numberOf(index + 1)
            if (isWhite || index === 0) {
                words.push(`${number}${isWhite ? "." : "..."}`)
            }
            words.push(ply.san)
            if (NAGS[ply.mark]) {
                words.push(`$${NAGS[ply.mark]}`)
            }
            if (ply.eval) {
                words.push(`{${scoreText(ply.eval)}/${ply.eval.depth}}`)
            }
            if (ply.note) {
                words.push(...`{${ply.note}}`.split(" "))
            }
        })
        const lines = [""]
        for (const word of [...words, this.result]) {
            if (lines.at(-1).length + word.length >= LINE) {
                lines.push("")
            }
            lines[lines.length - 1] += (lines.at(-1) ? " " : "") + word
        }
        const head = Object.entries(tags).map(([name, value]) =>
            `[${name} "${String(value).replace(/[\\"]/g, "\\$&")}"]`)
        return `${head.join("\n")}\n\n${lines.join("\n")}\n`
    }

    // Reads one game. Throws an Error with a sentence.
    fromPgn(text) {
        const { tags: { FEN, SetUp, Result, ...tags }, moves, result } = readPgn(text)
        const start = FEN === undefined ? DEFAULT_POSITION : completeFen(FEN)
        const fault = findFault(start)
        if (fault) {
            throw new Error(`its FEN: ${fault}`)
        }
        const rules = new Chess(start)
        const plies = moves.map(({ text: word, mark, notes }) => {
            const number = `${rules.moveNumber()}${rules.turn() === "w" ? "." : "…"}`
            const move = playText(rules, word)
            if (!move) {
                throw new Error(`${number} ${word.slice(0, 40)} cannot be played`)
            }
            const scores = notes.map(note => readScore(note, move.color === "w"))
            return plyOf(move, { mark, eval: scores.find(Boolean) ?? null,
                note: notes.filter((_, index) => !scores[index]).join(" ") })
        })
        Object.assign(this, { rules, start, plies, tags, startEval: null, result: "*", reason: "",
            ply: plies.length })
        this.judge()
        // What could have been claimed, such as a third repetition, need not have been.
        if (!/mate/.test(this.reason) && result !== "*") {
            this.end(result, "as the file says")
        }
        this.emit("game")
    }

    // ---- The browser's memory.

    toRecord() {
        return { start: this.start, moves: this.plies.map(ply => ply.uci), tags: this.tags,
            evals: this.plies.map(ply => ply.eval), marks: this.plies.map(ply => ply.mark),
            notes: this.plies.map(ply => ply.note),
            startEval: this.startEval, ply: this.ply, result: this.result, reason: this.reason }
    }

    // False if the record cannot be read; then the game is as it was.
    fromRecord(record) {
        try {
            const rules = new Chess(record.start)
            const plies = []
            record.moves.forEach((word, index) => {
                const move = rules.move({ from: word.slice(0, 2), to: word.slice(2, 4),
                    promotion: word[4] })
                plies.push(plyOf(move, { eval: record.evals?.[index] ?? null,
                    mark: record.marks?.[index] ?? "", note: record.notes?.[index] ?? "" }))
            })
            Object.assign(this, { rules, plies, start: record.start, tags: record.tags ?? {},
                startEval: record.startEval ?? null, result: record.result ?? "*",
                reason: record.reason ?? "", ply: Math.min(record.ply ?? 0, plies.length) })
        } catch {
            return false
        }
        this.emit("game")
        return true
    }
}

// The games of a file, one text each.
export function splitPgn(text) {
    const games = text.replace(/\r\n?/g, "\n").trim().split(/\n\s*\n(?=\[)/)
    return games.filter(game => game.trim() !== "")
}
