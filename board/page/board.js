// The board on the page: pieces, input by mouse, touch and keyboard, arrows and marks.

import { Chessboard, COLOR, INPUT_EVENT_TYPE } from "/chessboard/src/Chessboard.js"
import { Markers, MARKER_TYPE } from "/chessboard/src/extensions/markers/Markers.js"
import { Arrows } from "/chessboard/src/extensions/arrows/Arrows.js"
import { PromotionDialog } from "/chessboard/src/extensions/promotion-dialog/PromotionDialog.js"
import { Extension, EXTENSION_POINT } from "/chessboard/src/model/Extension.js"
import { Svg } from "/chessboard/src/lib/Svg.js"
import { Accessibility } from "/chessboard/src/extensions/accessibility/Accessibility.js"

const LAST = { class: "mark-last", slice: "markerSquare" }
const CHECK = { class: "mark-check", slice: "markerCircleFilled" }
const MOST_MARKS = 64

// Kinds of marks that panels set: a colour each.
const SHAPES = { zone: "markerSquare", good: "markerCircle", bad: "markerCircle",
    own: "markerFrame", enemy: "markerFrame", file: "markerSquare" }
const KINDS = Object.fromEntries(Object.entries(SHAPES).map(([kind, slice]) =>
    [kind, { class: `mark-${kind}`, slice }]))
const ARROWS = ["best", "other", "hint"].reduce((all, kind) =>
    ({ ...all, [kind]: { class: `arrow-${kind}` } }), {})

// Names of files and ranks. Those of the package carry their style within them, which the server's
// policy forbids.
class Coordinates extends Extension {
    constructor(chessboard) {
        super(chessboard)
        this.registerExtensionPoint(EXTENSION_POINT.afterRedrawBoard, () => this.draw())
    }

    draw() {
        const { view, state } = this.chessboard
        const names = state.orientation === "w" ? "abcdefgh" : "hgfedcba"
        const size = view.squareWidth
        view.coordinatesGroup.replaceChildren()
        const put = (text, x, y, shade) => {
            Svg.addElement(view.coordinatesGroup, "text", { class: `coordinate ${shade}`, x, y,
                "font-size": 0.16 * size }).textContent = text
        }
        for (let index = 0; index < 8; ++index) {
            const shade = index % 2 ? "black" : "white"
            const rank = state.orientation === "w" ? 8 - index : index + 1
            put(names[index], (index + 0.84) * size, 7.95 * size, index % 2 ? "white" : "black")
            put(String(rank), 0.04 * size, (index + 0.19) * size, shade)
        }
    }
}

export class Board {
    // play(move) is called with { from, to, promotion }; it tells whether that was a legal move.
    constructor(place, game, play) {
        this.game = game
        this.play = play
        this.color = undefined
        this.isOn = false
        const isCalm = matchMedia("(prefers-reduced-motion: reduce)").matches
        this.view = new Chessboard(place, {
            position: game.fen,
            assetsUrl: "/chessboard/assets/",
            style: { cssClass: "vesk", showCoordinates: false,
                pieces: { file: "pieces/standard.svg" }, animationDuration: isCalm ? 0 : 150 },
            extensions: [
                { class: Coordinates },
                { class: Markers, props: { autoMarkers: MARKER_TYPE.frame } },
                { class: Arrows },
                { class: PromotionDialog, props: { language: "en" } },
                { class: Accessibility, props: { language: "en", brailleNotationInAlt: true,
                    movePieceForm: false, boardAsTable: true, piecesAsList: true,
                    keyboardMoveInput: true, visuallyHidden: true } },
            ],
        })
        this.view.view.svg.setAttribute("aria-label",
            "Chessboard. Arrow keys go from square to square, Enter takes and drops a piece.")
        this.marks = []
        this.shown = ""
        // The package writes the place of a dragged piece into its text, which the server's policy
        // forbids.
        const input = this.view.view.visualMoveInput
        input.moveDraggablePiece = (x, y) => {
            const half = this.view.view.squareHeight / 2
            Object.assign(input.draggablePiece.style, { position: "absolute",
                pointerEvents: "none", left: `${x - half}px`, top: `${y - half}px` })
        }
    }

    get orientation() {
        return this.view.getOrientation()
    }

    turn(side) {
        const wanted = side === "b" ? COLOR.black : COLOR.white
        if (wanted !== this.orientation) {
            this.view.setOrientation(wanted, false)
        }
    }

    // Shows the position that the game is looked at in.
    show() {
        const { game } = this
        const move = game.lastMove
        this.view.setPosition(game.fen, true)
        this.view.removeMarkers(LAST)
        this.view.removeMarkers(CHECK)
        this.view.removeLegalMovesMarkers()
        if (move) {
            this.view.addMarker(LAST, move.from)
            this.view.addMarker(LAST, move.to)
        }
        if (move && /[+#]$/.test(move.san)) {
            const king = game.turnAt(game.ply) + "k"
            const square = [..."abcdefgh"].flatMap(file => [..."12345678"].map(rank => file + rank))
                .find(name => this.view.getPiece(name) === king)
            if (square) {
                this.view.addMarker(CHECK, square)
            }
        }
    }

    // Lets a side move, both, or none.
    allow(side) {
        const color = side === "both" ? undefined : side
        if (side === this.color) {
            return
        }
        this.color = side
        this.view.disableMoveInput()
        if (side) {
            this.view.enableMoveInput(event => this.takeInput(event), color)
        }
    }

    takeInput(event) {
        if (event.type === INPUT_EVENT_TYPE.moveInputStarted) {
            const moves = this.game.legalMoves(event.squareFrom)
            this.view.addLegalMovesMarkers(moves)
            return moves.length > 0
        }
        if (event.type === INPUT_EVENT_TYPE.validateMoveInput) {
            const moves = this.game.legalMoves(event.squareFrom)
                .filter(move => move.to === event.squareTo)
            if (moves.length === 0) {
                return false
            }
            if (moves.length > 1) {
                this.askPromotion(moves[0])
            } else {
                // The view must have finished its own move before the game changes it.
                setTimeout(() => this.take({ from: moves[0].from, to: moves[0].to }))
            }
            return true
        }
        if (event.type !== INPUT_EVENT_TYPE.movingOverSquare) {
            this.view.removeLegalMovesMarkers()
        }
        return undefined
    }

    // A move that came too late is taken off the board again.
    take(move) {
        if (!this.play(move)) {
            this.view.setPosition(this.game.fen, false)
        }
    }

    askPromotion(move) {
        this.view.showPromotionDialog(move.to, move.color, result => {
            if (result.piece) {
                this.take({ from: move.from, to: move.to, promotion: result.piece.charAt(1) })
            } else {
                this.view.setPosition(this.game.fen, false)
            }
        })
    }

    // Arrows: { kind, from, to }.
    drawArrows(arrows) {
        const text = JSON.stringify(arrows)
        if (text === this.shown) {
            return
        }
        this.shown = text
        this.view.removeArrows()
        for (const { kind, from, to } of [...arrows].reverse()) {
            this.view.addArrow(ARROWS[kind], from, to)
        }
    }

    // Marks: { kind, square }.
    drawMarks(marks) {
        for (const kind of Object.values(KINDS)) {
            this.view.removeMarkers(kind)
        }
        for (const { kind, square } of marks.slice(0, 2 * MOST_MARKS)) {
            this.view.addMarker(KINDS[kind], square)
        }
        this.marks = marks
    }
}
