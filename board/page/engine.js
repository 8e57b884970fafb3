// The engine as the page sees it: searches wait for each other by how urgent they are. One that is
// pushed aside, or whose engine or server went away, is begun again later.

// The greater comes first.
export const PRIORITY = { move: 4, hint: 3, analysis: 2, review: 1 }
const MOST_RETRIES = 3
const MOST_TABLES = 400

export class Engine extends EventTarget {
    constructor(connection) {
        super()
        this.connection = connection
        this.jobs = []          // that wait
        this.job = null         // that runs
        this.number = 0
        this.isReady = false
        this.name = "Vesk"
        this.elo = [1500, 3000]
        this.tables = new Map() // score tables, or promises of them, by position and taste
        this.asked = new Map()
        connection.on("ready", message => this.begin(message))
        connection.on("lost", () => this.interrupt("The engine ended and is started again."))
        connection.on("failed", message => this.fail(message.text))
        connection.on("state", ({ state }) => state === "closed" && this.interrupt())
        connection.on("info", message => this.takeInfo(message))
        connection.on("bestmove", message => this.takeMove(message))
        connection.on("refused", message => this.takeRefusal(message))
        connection.on("explained", message => this.takeTable(message))
    }

    tell(state, text = "") {
        this.dispatchEvent(new CustomEvent("state", { detail: { state, text } }))
    }

    begin({ engine, elo }) {
        this.isReady = true
        this.name = engine || this.name
        this.elo = elo
        this.tell("ready")
        for (const { message } of this.asked.values()) {
            this.connection.send(message)
        }
        this.runNext()
    }

    // The search that ran is begun again once there is an engine, but not for ever: it may be what
    // the engine died of.
    interrupt(text = "") {
        this.isReady = false
        const job = this.job
        this.job = null
        if (job && (job.isCancelled || (text && ++job.retries > MOST_RETRIES))) {
            job.resolve({ cancelled: true, lines: job.lines })
        } else if (job) {
            this.jobs.unshift(job)
        }
        this.tell("lost", text)
    }

    fail(text) {
        this.interrupt("failed")
        this.tell("failed", text)
    }

    // Asks for a search: request has fen, moves, limits, lines, elo, taste, analyse. Gives a job with
    // a promise `done` of { move, lines, cancelled }; info is called with the lines by their number.
    search(request, priority, info = () => {}) {
        const job = { request, priority, info, lines: [], retries: 0, id: 0, isCancelled: false }
        job.done = new Promise(resolve => { job.resolve = resolve })
        job.cancel = () => this.cancel(job)
        this.jobs.push(job)
        if (this.job && this.job.priority < priority && !this.job.isCancelled) {
            this.job.isPushed = true
            this.connection.send({ type: "stop" })
        }
        this.runNext()
        return job
    }

    cancel(job) {
        if (job.isCancelled) {
            return
        }
        job.isCancelled = true
        if (this.job === job) {
            this.connection.send({ type: "stop" })
        } else {
            this.jobs = this.jobs.filter(other => other !== job)
            job.resolve({ cancelled: true, lines: job.lines })
        }
    }

    runNext() {
        if (this.job || !this.isReady || this.jobs.length === 0) {
            return
        }
        const best = this.jobs.reduce((a, b) => (b.priority > a.priority ? b : a))
        this.jobs = this.jobs.filter(job => job !== best)
        this.job = best
        best.id = ++this.number
        best.isPushed = false
        best.lines = []
        this.connection.send({ type: "search", id: best.id, ...best.request })
    }

    takeInfo({ id, lines }) {
        const job = this.job
        if (!job || job.id !== id || job.isCancelled) {
            return
        }
        for (const line of lines) {
            job.lines[(line.multipv ?? 1) - 1] = line
        }
        job.info(job.lines)
    }

    takeMove({ id, move }) {
        const job = this.job
        if (!job || job.id !== id) {
            return
        }
        this.job = null
        if (job.isPushed && !job.isCancelled) {
            this.jobs.unshift(job)
        } else {
            const isMove = move && move !== "(none)"
            job.resolve({ move: isMove ? move : null, lines: job.lines, cancelled: job.isCancelled })
        }
        this.runNext()
    }

    // What the server does not hand on has no answer: a search ends without a move.
    takeRefusal({ id, text }) {
        if (this.asked.has(id)) {
            this.takeTable({ id, rows: [], hung: [], text })
        } else if (this.job?.id === id) {
            this.takeMove({ id, move: null })
        }
    }

    // A promise of the score table of a position.
    explain(fen, taste = null) {
        const key = fen + JSON.stringify(taste ?? {})
        if (!this.tables.has(key)) {
            const id = ++this.number
            const message = { type: "explain", id, fen, taste: taste ?? {} }
            const promise = new Promise(resolve => this.asked.set(id, { resolve, message, key }))
            this.tables.set(key, promise)
            this.connection.send(message)
            if (this.tables.size > MOST_TABLES) {
                this.tables.delete(this.tables.keys().next().value)
            }
        }
        return this.tables.get(key)
    }

    takeTable(message) {
        const asked = this.asked.get(message.id)
        this.asked.delete(message.id)
        if (message.text) {
            this.tables.delete(asked?.key)  // a failure may pass
        }
        asked?.resolve(message)
    }
}
