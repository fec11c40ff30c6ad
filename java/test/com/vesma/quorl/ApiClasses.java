package com.vesma.quorl;

import java.lang.reflect.Modifier;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;

/** The public classes of the exported package, found rather than listed. */
final class ApiClasses {
    private ApiClasses() {}

    /** Where the module's classes are. */
    static Path folder() throws Exception {
        return Path.of(Quorl.class.getProtectionDomain().getCodeSource().getLocation().toURI());
    }

    /** In the order of their names. */
    static List<Class<?>> all() throws Exception {
        List<Class<?>> found = new ArrayList<>();
        try (Stream<Path> files = Files.list(folder().resolve("com/vesma/quorl"))) {
            for (String name : files.map(file -> file.getFileName().toString()).filter(name -> name.endsWith(".class")).sorted().toList()) {
                Class<?> type = Class.forName("com.vesma.quorl." + name.replaceFirst("\\.class$", ""), false,
                        ApiClasses.class.getClassLoader());
                if (Modifier.isPublic(type.getModifiers())) {
                    found.add(type);
                }
            }
        }
        return found;
    }
}
