// Well-known beginnings to play from.

const LINES = {
    "Ruy Lopez": "e4 e5 Nf3 Nc6 Bb5 a6 Ba4 Nf6 O-O Be7",
    "Italian game": "e4 e5 Nf3 Nc6 Bc4 Bc5 c3 Nf6 d3 d6",
    "Scotch game": "e4 e5 Nf3 Nc6 d4 exd4 Nxd4 Nf6 Nxc6 bxc6",
    "King's gambit": "e4 e5 f4 exf4 Nf3 g5 h4 g4 Ne5 Nf6",
    "Petrov": "e4 e5 Nf3 Nf6 Nxe5 d6 Nf3 Nxe4 d4 d5",
    "Sicilian, Najdorf": "e4 c5 Nf3 d6 d4 cxd4 Nxd4 Nf6 Nc3 a6",
    "Sicilian, dragon": "e4 c5 Nf3 d6 d4 cxd4 Nxd4 Nf6 Nc3 g6",
    "Sicilian, Sveshnikov": "e4 c5 Nf3 Nc6 d4 cxd4 Nxd4 Nf6 Nc3 e5 Ndb5 d6",
    "French": "e4 e6 d4 d5 Nc3 Nf6 Bg5 Be7 e5 Nfd7",
    "Caro-Kann": "e4 c6 d4 d5 Nc3 dxe4 Nxe4 Bf5 Ng3 Bg6",
    "Scandinavian": "e4 d5 exd5 Qxd5 Nc3 Qa5 d4 Nf6 Nf3 c6",
    "Pirc": "e4 d6 d4 Nf6 Nc3 g6 f4 Bg7 Nf3 O-O",
    "Queen's gambit": "d4 d5 c4 e6 Nc3 Nf6 Bg5 Be7 e3 O-O",
    "Queen's gambit, accepted": "d4 d5 c4 dxc4 Nf3 Nf6 e3 e6 Bxc4 c5",
    "Slav": "d4 d5 c4 c6 Nf3 Nf6 Nc3 dxc4 a4 Bf5",
    "Nimzo-Indian": "d4 Nf6 c4 e6 Nc3 Bb4 e3 O-O Bd3 d5",
    "King's Indian": "d4 Nf6 c4 g6 Nc3 Bg7 e4 d6 Nf3 O-O",
    "Grünfeld": "d4 Nf6 c4 g6 Nc3 d5 cxd5 Nxd5 e4 Nxc3 bxc3 Bg7",
    "Dutch": "d4 f5 g3 Nf6 Bg2 g6 Nf3 Bg7 O-O O-O",
    "English": "c4 e5 Nc3 Nf6 Nf3 Nc6 g3 d5 cxd5 Nxd5",
}

export const OPENINGS = Object.entries(LINES).map(([name, moves]) =>
    ({ name, moves: moves.split(" ") }))
