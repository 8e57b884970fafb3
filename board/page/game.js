// The game on the board: its moves, the place that is looked at, and how it goes into and out of
// files. The rules are those of chess.js.

import { Chess, DEFAULT_POSITION, validateFen } from "/chess/dist/esm/chess.js"
import { scoreText } from "./score.js"

export { DEFAULT_POSITION }
const LONGEST_PGN = 1 << 20     // characters
const LINE = 80
const MOST_FIGURES = 4
export const NAGS = { "?!": 6, "?": 2, "??": 4 }

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
    const [king] = rules.findPiece({ type: "k", color: rules.turn() === "w" ? "b" : "w" })
    return rules.isAttacked(king, rules.turn()) ? "the side that has just moved is in check" : null
}

// A FEN with the fields that people leave out.
export function completeFen(text) {
    const fields = text.trim().split(/\s+/)
    return [...fields, ...["w", "-", "-", "0", "1"].slice(fields.length - 1)].slice(0, 6).join(" ")
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
        this.plies.push({ uci: move.lan, san: move.san, fen: move.after, from: move.from,
            to: move.to, color: move.color, eval: null, mark: "" })
    }

    // Plays a move at the place that is looked at: SAN, or a word like e2e4. What came behind is
    // dropped, unless it was this very move. Null if it is not legal, and nothing has changed.
    play(text) {
        const before = this.isAtEnd ? this.rules : new Chess(this.fen)
        let move = null
        try {
            move = before.move(typeof text === "string" && /^[a-h][1-8][a-h][1-8][qrbn]?$/.test(text)
                ? { from: text.slice(0, 2), to: text.slice(2, 4), promotion: text[4] } : text,
            { strict: false })
        } catch {
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
        if (text.length > LONGEST_PGN) {
            throw new Error("a game of more than a million characters is not read")
        }
        const rules = new Chess()
        rules.loadPgn(text, { strict: false })
        const moves = rules.history({ verbose: true })
        const tags = rules.getHeaders()
        if (moves.some(move => move.san === "--")) {
            throw new Error("a move that passes is not understood")
        }
        const fresh = new Chess(moves.length ? moves[0].before : rules.fen())
        this.rules = fresh
        this.start = fresh.fen()
        this.plies = []
        this.startEval = null
        for (const move of moves) {
            this.record(fresh.move(move.san))
        }
        const { Result, FEN, SetUp, ...kept } = tags
        this.tags = kept
        this.result = "*"
        this.reason = ""
        this.judge()
        // What could have been claimed, such as a third repetition, need not have been.
        if (!/mate/.test(this.reason) && ["1-0", "0-1", "1/2-1/2"].includes(Result)) {
            this.end(Result, "as the file says")
        }
        this.ply = this.plies.length
        this.emit("game")
    }

    // ---- The browser's memory.

    toRecord() {
        return { start: this.start, moves: this.plies.map(ply => ply.uci), tags: this.tags,
            evals: this.plies.map(ply => ply.eval), marks: this.plies.map(ply => ply.mark),
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
                plies.push({ uci: move.lan, san: move.san, fen: move.after, from: move.from,
                    to: move.to, color: move.color, eval: record.evals?.[index] ?? null,
                    mark: record.marks?.[index] ?? "" })
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
