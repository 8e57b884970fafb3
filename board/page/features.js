// What a term of the evaluation looks at, found on the board itself: passed pawns, outposts, king
// zones, open files. The sets are those of the engine's own terms.

const FILES = "abcdefgh"

const nameOf = (file, rank) => FILES[file] + (rank + 1)

// The pieces of a FEN: { side, type, file, rank }, ranks from 0.
export function piecesOf(fen) {
    const pieces = []
    fen.split(" ")[0].split("/").forEach((row, index) => {
        let file = 0
        for (const char of row) {
            if (/\d/.test(char)) {
                file += Number(char)
            } else {
                pieces.push({ side: char === char.toUpperCase() ? "w" : "b",
                    type: char.toLowerCase(), file, rank: 7 - index, square: nameOf(file, 7 - index) })
                file += 1
            }
        }
    })
    return pieces
}

const step = side => (side === "w" ? 1 : -1)
const isAhead = (side, from, to) => (to - from) * step(side) > 0
const pawnsOf = (pieces, side) => pieces.filter(piece => piece.type === "p" && piece.side === side)
const other = side => (side === "w" ? "b" : "w")

// Pawns that no enemy pawn can stop or take on their way.
function isPassed(pieces, pawn) {
    return !pawnsOf(pieces, other(pawn.side)).some(enemy =>
        Math.abs(enemy.file - pawn.file) <= 1 && isAhead(pawn.side, pawn.rank, enemy.rank))
}

// Squares in the enemy's half that an own pawn guards and no enemy pawn can ever attack.
function outpostsOf(pieces, side) {
    const found = []
    const enemies = pawnsOf(pieces, other(side))
    for (const pawn of pawnsOf(pieces, side)) {
        for (const file of [pawn.file - 1, pawn.file + 1]) {
            const rank = pawn.rank + step(side)
            const relative = side === "w" ? rank : 7 - rank
            const isSafe = !enemies.some(enemy => Math.abs(enemy.file - file) === 1
                && isAhead(side, rank, enemy.rank))
            if (file >= 0 && file < 8 && relative >= 3 && relative <= 5 && isSafe) {
                found.push(nameOf(file, rank))
            }
        }
    }
    return found
}

// Three by three squares around the king, moved inwards from the edge.
function zoneOf(pieces, side) {
    const king = pieces.find(piece => piece.type === "k" && piece.side === side)
    if (!king) {
        return []
    }
    const inner = value => Math.max(1, Math.min(6, value))
    const squares = []
    for (let file = inner(king.file) - 1; file <= inner(king.file) + 1; ++file) {
        for (let rank = inner(king.rank) - 1; rank <= inner(king.rank) + 1; ++rank) {
            squares.push(nameOf(file, rank))
        }
    }
    return squares
}

function weakPawns(pieces) {
    return pieces.filter(({ type }) => type === "p").filter(pawn => {
        const own = pawnsOf(pieces, pawn.side)
        const isAlone = !own.some(friend => Math.abs(friend.file - pawn.file) === 1)
        const isDoubled = own.some(friend => friend.file === pawn.file
            && isAhead(pawn.side, friend.rank, pawn.rank))
        return isAlone || isDoubled
    }).map(pawn => pawn.square)
}

function openFiles(pieces) {
    return [...FILES].map((_, file) => file)
        .filter(file => !pieces.some(piece => piece.type === "p" && piece.file === file))
        .flatMap(file => [0, 1, 2, 3, 4, 5, 6, 7].map(rank => nameOf(file, rank)))
}

const mark = (kind, squares) => squares.map(square => ({ kind, square }))
const squaresOf = (pieces, side, type) =>
    pieces.filter(piece => piece.side === side && piece.type === type).map(({ square }) => square)

function markPieces(pieces, type) {
    return [...mark("own", squaresOf(pieces, "w", type)),
        ...mark("enemy", squaresOf(pieces, "b", type))]
}

// For each term what is marked on the board, with words for it.
const MARKERS = {
    pawns: pieces => ({ marks: mark("bad", weakPawns(pieces)),
        text: "Isolated and doubled pawns are circled." }),
    knights: pieces => ({ marks: [...mark("good", outpostsOf(pieces, "w")),
        ...mark("good", outpostsOf(pieces, "b")), ...markPieces(pieces, "n")],
    text: "Knights are framed, outposts circled: squares that a pawn guards and no enemy pawn can "
        + "attack." }),
    bishops: pieces => ({ marks: [...mark("good", outpostsOf(pieces, "w")),
        ...mark("good", outpostsOf(pieces, "b")), ...markPieces(pieces, "b")],
    text: "Bishops are framed, outposts circled." }),
    rooks: pieces => ({ marks: [...mark("file", openFiles(pieces)), ...markPieces(pieces, "r")],
        text: "Rooks are framed, open files shaded." }),
    queens: pieces => ({ marks: markPieces(pieces, "q"), text: "Queens are framed." }),
    king: pieces => ({ marks: [...mark("zone", zoneOf(pieces, "w")),
        ...mark("zone", zoneOf(pieces, "b")), ...markPieces(pieces, "k")],
    text: "King zones are shaded: attacks on these squares count as danger." }),
    ppawns: pieces => ({ marks: mark("good", pieces.filter(piece => piece.type === "p"
        && isPassed(pieces, piece)).map(({ square }) => square)),
    text: "Passed pawns are circled." }),
    other: (pieces, hung) => ({ marks: mark("bad", hung),
        text: hung.length ? "Hanging pieces are circled." : "Nothing hangs." }),
}

// Marks and a sentence for a term; hung are the squares that the engine names.
export function featuresOf(term, fen, hung) {
    return MARKERS[term]?.(piecesOf(fen), hung) ?? { marks: [], text: "" }
}
