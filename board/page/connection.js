// The socket to the server. It comes back by itself when the server was away.

import { memory } from "./dom.js"

const FIRST_WAIT = 300      // milliseconds
const LONGEST_WAIT = 5000

// The key stands behind the # of the address that scripts/board prints. It is kept, so that the
// bare address does as well the next time, and taken out of sight.
function takeKey() {
    const given = location.hash.slice(1)
    if (/^[\w-]{8,}$/.test(given)) {
        memory.write("key", given)
        history.replaceState(null, "", location.pathname)
        return given
    }
    return memory.read("key") ?? ""
}

export class Connection extends EventTarget {
    constructor() {
        super()
        this.key = takeKey()
        this.wait = FIRST_WAIT
        this.open()
        addEventListener("online", () => this.retry())
        addEventListener("hashchange", () => {
            this.key = takeKey()
            this.retry()
        })
        // A page that the browser keeps for the way back needs no engine.
        addEventListener("pagehide", () => {
            clearTimeout(this.timer)
            this.isAway = true
            this.socket.close()
        })
        addEventListener("pageshow", event => {
            this.isAway = false
            if (event.persisted) {
                this.open()
            }
        })
        document.addEventListener("visibilitychange", () => document.hidden || this.retry())
    }

    open() {
        this.socket = new WebSocket(`ws://${location.host}/socket?key=${encodeURIComponent(this.key)}`)
        this.socket.onopen = () => {
            this.wait = FIRST_WAIT
            this.emit("state", { state: "open" })
        }
        this.socket.onmessage = event => this.take(event.data)
        this.socket.onclose = () => {
            this.emit("state", { state: "closed" })
            if (this.isAway) {
                return
            }
            this.timer = setTimeout(() => this.open(), this.wait)
            this.wait = Math.min(2 * this.wait, LONGEST_WAIT)
        }
    }

    retry() {
        if (this.socket.readyState === WebSocket.CLOSED) {
            clearTimeout(this.timer)
            this.open()
        }
    }

    take(text) {
        let message = null
        try {
            message = JSON.parse(text)
        } catch {
            return
        }
        if (typeof message?.type === "string") {
            this.emit(message.type, message)
        }
    }

    emit(type, detail) {
        this.dispatchEvent(new CustomEvent(type, { detail }))
    }

    on(type, listener) {
        this.addEventListener(type, event => listener(event.detail))
    }

    // False where there is nobody to hear it.
    send(message) {
        if (this.socket.readyState !== WebSocket.OPEN) {
            return false
        }
        this.socket.send(JSON.stringify(message))
        return true
    }
}
