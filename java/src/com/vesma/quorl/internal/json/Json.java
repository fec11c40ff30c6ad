package com.vesma.quorl.internal.json;

import com.vesma.quorl.internal.image.ImageWriter;
import com.vesma.quorl.internal.image.MessageImage;

/**
 * The way to {@link JsonWriting} and {@link JsonReading}, which need a library that a program may be without.
 */
public final class Json {
    private static final String NEEDED = "com.google.gson.stream.JsonReader";

    /** What the module is called: its own name, and the one that its file gives it where the jar says none. */
    private static final String[] MODULES = {"com.google.gson", "gson"};

    private static volatile boolean found;

    private Json() {}

    public static String write(MessageImage image) {
        find();
        return JsonWriting.write(image);
    }

    public static ImageWriter read(String json) {
        find();
        return JsonReading.read(json);
    }

    private static void find() {
        if (found) {
            return;
        }
        Module own = Json.class.getModule();
        if (own.isNamed()) {
            for (String name : MODULES) {
                own.getLayer().findModule(name).ifPresent(own::addReads);
            }
            own.addReads(Json.class.getClassLoader().getUnnamedModule());
        }
        try {
            Class.forName(NEEDED, false, Json.class.getClassLoader());
        } catch (ClassNotFoundException e) {
            throw new IllegalStateException("JSON needs the library Gson, which is not on the class path or among the modules"
                    + " (Debian: libgoogle-gson-java; with modules: --add-modules gson)", e);
        }
        found = true;
    }
}
