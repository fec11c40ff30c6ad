package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.PrintWriter;
import java.io.StringWriter;
import java.util.List;
import org.junit.jupiter.api.Test;

class ScreenTest {
    @Test
    void aFrameIsDrawnOverTheOneBefore() {
        StringWriter out = new StringWriter();
        try (Screen screen = new Screen(new PrintWriter(out))) {
            screen.draw(List.of("one", "two"));
            screen.draw(List.of("three"));
        }
        assertEquals("\u001b[?7l\u001b[?25l"
                + "\rone\u001b[K\ntwo\u001b[K\n\u001b[J"
                + "\u001b[2A\rthree\u001b[K\n\u001b[J"
                + "\u001b[?7h\u001b[?25h", out.toString());
    }
}
