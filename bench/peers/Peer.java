// Benchmark implementation: answers file and path workloads with Java's standard library.
// Requests and answers are lines on standard input and output.

import java.io.BufferedReader;
import java.io.EOFException;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.Writer;
import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.CharsetDecoder;
import java.nio.charset.CoderResult;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.FileVisitResult;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.SimpleFileVisitor;
import java.nio.file.StandardCopyOption;
import java.nio.file.attribute.BasicFileAttributes;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.function.Function;

final class Peer {
    record Answer(long nanoseconds, long checksum) {}

    static final class Skip extends Exception {
        Skip(String reason) {
            super(reason);
        }

        @Override
        public String toString() {
            return getMessage();
        }
    }

    interface Step {
        long run(int n) throws Exception;
    }

    /** Files loaded before the clock starts, by name. */
    private static final Map<String, byte[]> CACHE = new HashMap<>();

    private static byte[] load(String file) throws IOException {
        byte[] data = CACHE.get(file);
        if (data == null) {
            data = Files.readAllBytes(Path.of(file));
            CACHE.put(file, data);
        }
        return data;
    }

    /** Runs the step {@code count} times; the checksum is the sum of what it returns. */
    private static Answer timed(int count, Step step) throws Exception {
        long checksum = 0;
        long start = System.nanoTime();
        for (int n = 0; n < count; n++) {
            checksum += step.run(n);
        }
        return new Answer(System.nanoTime() - start, checksum);
    }

    /** The clock covers the way from a string to a path and back, as callers have strings. */
    private static Answer timedPaths(int count, String file, Function<Path, Path> operation)
            throws Exception {
        String text = new String(load(file), StandardCharsets.UTF_8);
        String[] lines = (text.endsWith("\n") ? text.substring(0, text.length() - 1) : text)
                .split("\n", -1);
        return timed(count, n -> {
            long length = 0;
            for (String line : lines) {
                Path result = operation.apply(Path.of(line));
                length += result == null ? 0 : result.toString().length();
            }
            return length;
        });
    }

    /** Decodes strictly, a piece at a time: there is no way to validate only. */
    private static boolean isUtf8(byte[] data) {
        CharsetDecoder decoder = StandardCharsets.UTF_8.newDecoder();
        ByteBuffer bytes = ByteBuffer.wrap(data);
        CharBuffer characters = CharBuffer.allocate(8192);
        CoderResult result;
        do {
            result = decoder.decode(bytes, characters.clear(), true);
        } while (result.isOverflow());
        return !result.isError();
    }

    private static int prefix(Path file, int size) throws IOException {
        byte[] bytes;
        try (var stream = Files.newInputStream(file)) {
            bytes = stream.readNBytes(size);
        }
        String text = StandardCharsets.UTF_8.newDecoder().decode(ByteBuffer.wrap(bytes)).toString();
        return text.isEmpty() ? 0 : bytes.length;
    }

    private static int range(Path file, int position, ByteBuffer buffer) throws IOException {
        buffer.clear();
        try (var channel = FileChannel.open(file)) {
            if (channel.read(buffer, position) < buffer.capacity()) {
                throw new EOFException("unexpected end of file");
            }
        }
        return buffer.position();
    }

    private static long writeBuffered(Path file, String text, int times) throws IOException {
        try (Writer writer = Files.newBufferedWriter(file)) {
            for (int n = 0; n < times; n++) {
                writer.write(text);
            }
        }
        return (long) times * text.length();
    }

    private static long writeThreads(String file, String text, int times, int threads)
            throws Exception {
        ExecutorService pool = Executors.newFixedThreadPool(threads);
        try {
            List<Future<Long>> results = new ArrayList<>();
            for (int n = 0; n < threads; n++) {
                Path part = Path.of(file + "." + n);
                results.add(pool.submit(() -> writeBuffered(part, text, times)));
            }
            long size = 0;
            for (Future<Long> result : results) {
                size += result.get();
            }
            return size;
        } finally {
            pool.shutdown();
        }
    }

    private static int publish(String file, String text, int n) throws IOException {
        Path temporary = Path.of(file + ".tmp-" + n);
        Files.writeString(temporary, text);
        Files.move(temporary, Path.of(file), StandardCopyOption.ATOMIC_MOVE);
        return text.length();
    }

    private static int list(Path folder) throws IOException {
        int found = 0;
        try (DirectoryStream<Path> entries = Files.newDirectoryStream(folder)) {
            for (Path entry : entries) {
                try {
                    var attributes = Files.readAttributes(entry, BasicFileAttributes.class);
                    if (attributes.isRegularFile() || attributes.isDirectory()) {
                        found++;
                    }
                } catch (IOException leadsNowhere) {
                    continue;
                }
            }
        }
        return found;
    }

    private static void createTree(Path folder, int files) throws IOException {
        int folders = Math.max(1, files / 200);
        Files.createDirectory(folder);
        for (int n = 0; n < folders; n++) {
            Files.createDirectory(folder.resolve("" + n));
        }
        for (int n = 0; n < files; n++) {
            Files.createFile(folder.resolve(n % folders + "/" + n));
        }
    }

    private static void removeTree(Path folder) throws IOException {
        Files.walkFileTree(folder, new SimpleFileVisitor<>() {
            @Override
            public FileVisitResult visitFile(Path file, BasicFileAttributes attributes)
                    throws IOException {
                Files.delete(file);
                return FileVisitResult.CONTINUE;
            }

            @Override
            public FileVisitResult postVisitDirectory(Path folder, IOException failure)
                    throws IOException {
                if (failure != null) {
                    throw failure;
                }
                Files.delete(folder);
                return FileVisitResult.CONTINUE;
            }
        });
    }

    private static Answer removeTrees(int count, Path folder, int files) throws IOException {
        long nanoseconds = 0;
        for (int n = 0; n < count; n++) {
            createTree(folder, files);
            long start = System.nanoTime();
            removeTree(folder);
            nanoseconds += System.nanoTime() - start;
        }
        return new Answer(nanoseconds, (long) count * files);
    }

    private static int walk(Path folder) throws IOException {
        int[] valid = {0};
        Files.walkFileTree(folder, new SimpleFileVisitor<>() {
            @Override
            public FileVisitResult visitFile(Path file, BasicFileAttributes attributes)
                    throws IOException {
                if (attributes.isRegularFile() && isUtf8(Files.readAllBytes(file))) {
                    valid[0]++;
                }
                return FileVisitResult.CONTINUE;
            }
        });
        return valid[0];
    }

    private static Answer answer(String request) throws Exception {
        String[] fields = request.split("\t");
        if (fields.length < 3) {
            throw new Skip("too few fields");
        }
        int count = Integer.parseInt(fields[1]);
        String file = fields[2];
        Path path = Path.of(file);
        int[] numbers = Arrays.stream(fields).skip(3).mapToInt(Integer::parseInt).toArray();

        switch (fields[0]) {
            case "utf8": {
                byte[] data = load(file);
                return timed(count, n -> isUtf8(data) ? 1 : 0);
            }
            case "read_text": // length in UTF-16 units
                return timed(count, n -> Files.readString(path).length());
            case "prefix":
                return timed(count, n -> prefix(path, numbers[0]));
            case "range": {
                ByteBuffer buffer = ByteBuffer.allocateDirect(numbers[1]);
                return timed(count, n -> range(path, numbers[0], buffer));
            }
            case "normalize":
                return timedPaths(count, file, Path::normalize);
            case "parent":
                return timedPaths(count, file, Path::getParent);
            case "resolve":
                return timedPaths(count, file,
                        line -> line.resolve("../sibling/name.txt").normalize());
            case "name":
                return timedPaths(count, file, Path::getFileName);
            case "write": {
                String text = "x".repeat(numbers[0]);
                return timed(1, n -> writeThreads(file, text, count, numbers[1]));
            }
            case "publish": {
                String text = "x".repeat(numbers[0]);
                return timed(count, n -> publish(file, text, n));
            }
            case "list":
                return timed(count, n -> list(path));
            case "remove_tree":
                return removeTrees(count, path, numbers[0]);
            case "walk":
                return timed(count, n -> walk(path));
            default:
                throw new Skip("nothing of the kind in the standard library");
        }
    }

    public static void main(String[] arguments) throws IOException {
        var requests = new BufferedReader(
                new InputStreamReader(System.in, StandardCharsets.UTF_8));
        for (String request; (request = requests.readLine()) != null; ) {
            String line;
            try {
                Answer answer = answer(request);
                line = answer.nanoseconds() + "\t" + answer.checksum();
            } catch (Exception error) {
                line = "skip\t" + error.toString().replaceAll("\\s+", " ");
            }
            System.out.println(line);
            System.out.flush();
        }
    }
}
