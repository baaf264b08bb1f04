// Benchmark implementation: answers file and path workloads with Go's standard library.
// Requests and answers are lines on standard input and output.

package main

import (
	"bufio"
	"errors"
	"fmt"
	"io"
	"os"
	"path"
	"strconv"
	"strings"
	"time"
	"unicode/utf8"
)

type answer struct {
	nanoseconds int64
	checksum    int
}

var errInvalid = errors.New("invalid UTF-8")

// cache holds the files loaded before the clock starts, by name.
var cache = map[string][]byte{}

func load(file string) ([]byte, error) {
	if data, ok := cache[file]; ok {
		return data, nil
	}
	data, err := os.ReadFile(file)
	if err == nil {
		cache[file] = data
	}
	return data, err
}

// timed runs step count times; the checksum is the sum of what it returns.
func timed(count int, step func() (int, error)) (answer, error) {
	checksum := 0
	start := time.Now()
	for i := 0; i < count; i++ {
		n, err := step()
		if err != nil {
			return answer{}, err
		}
		checksum += n
	}
	return answer{time.Since(start).Nanoseconds(), checksum}, nil
}

func timedPaths(count int, file string, operation func(string) string) (answer, error) {
	data, err := load(file)
	if err != nil {
		return answer{}, err
	}
	lines := strings.Split(strings.TrimSuffix(string(data), "\n"), "\n")
	return timed(count, func() (int, error) {
		length := 0
		for _, line := range lines {
			length += len(operation(line))
		}
		return length, nil
	})
}

func text(data []byte) (string, error) {
	if !utf8.Valid(data) {
		return "", errInvalid
	}
	return string(data), nil
}

func readText(file string) (int, error) {
	data, err := os.ReadFile(file)
	if err != nil {
		return 0, err
	}
	content, err := text(data)
	return len(content), err
}

func prefix(name string, size int) (int, error) {
	file, err := os.Open(name)
	if err != nil {
		return 0, err
	}
	defer file.Close()
	data := make([]byte, size)
	if _, err := io.ReadFull(file, data); err != nil {
		return 0, err
	}
	content, err := text(data)
	return len(content), err
}

func readRange(name string, position int, buffer []byte) (int, error) {
	file, err := os.Open(name)
	if err != nil {
		return 0, err
	}
	defer file.Close()
	return file.ReadAt(buffer, int64(position))
}

func writeBuffered(name, text string, times int) error {
	file, err := os.Create(name)
	if err != nil {
		return err
	}
	defer file.Close()
	writer := bufio.NewWriter(file)
	for i := 0; i < times; i++ {
		if _, err := writer.WriteString(text); err != nil {
			return err
		}
	}
	if err := writer.Flush(); err != nil {
		return err
	}
	return file.Close()
}

func writeThreads(name, text string, times, threads int) (int, error) {
	results := make(chan error, threads)
	for n := 0; n < threads; n++ {
		go func(n int) {
			results <- writeBuffered(fmt.Sprintf("%s.%d", name, n), text, times)
		}(n)
	}
	var failure error
	for n := 0; n < threads; n++ {
		if err := <-results; err != nil {
			failure = err
		}
	}
	return times * len(text) * threads, failure
}

func publish(name, temporary, text string) (int, error) {
	if err := os.WriteFile(temporary, []byte(text), 0o666); err != nil {
		return 0, err
	}
	return len(text), os.Rename(temporary, name)
}

func names(folder string) ([]string, error) {
	file, err := os.Open(folder)
	if err != nil {
		return nil, err
	}
	defer file.Close()
	return file.Readdirnames(-1)
}

func list(folder string) (int, error) {
	entries, err := names(folder)
	found := 0
	for _, name := range entries {
		info, err := os.Stat(folder + "/" + name)
		if err == nil && (info.IsDir() || info.Mode().IsRegular()) {
			found++
		}
	}
	return found, err
}

func createTree(folder string, files int) error {
	folders := files / 200
	if folders == 0 {
		folders = 1
	}
	if err := os.Mkdir(folder, 0o777); err != nil {
		return err
	}
	for n := 0; n < folders; n++ {
		if err := os.Mkdir(fmt.Sprintf("%s/%d", folder, n), 0o777); err != nil {
			return err
		}
	}
	for n := 0; n < files; n++ {
		file, err := os.Create(fmt.Sprintf("%s/%d/%d", folder, n%folders, n))
		if err != nil {
			return err
		}
		file.Close()
	}
	return nil
}

func removeTrees(count int, folder string, files int) (answer, error) {
	var total answer
	for i := 0; i < count; i++ {
		if err := createTree(folder, files); err != nil {
			return total, err
		}
		start := time.Now()
		if err := os.RemoveAll(folder); err != nil {
			return total, err
		}
		total.nanoseconds += time.Since(start).Nanoseconds()
		total.checksum += files
	}
	return total, nil
}

func walk(folder string) (int, error) {
	entries, err := names(folder)
	if err != nil {
		return 0, err
	}
	valid := 0
	for _, name := range entries {
		name = folder + "/" + name
		info, err := os.Lstat(name)
		if err != nil {
			return 0, err
		}
		if info.IsDir() {
			below, err := walk(name)
			if err != nil {
				return 0, err
			}
			valid += below
		} else if info.Mode().IsRegular() {
			data, err := os.ReadFile(name)
			if err != nil {
				return 0, err
			}
			if utf8.Valid(data) {
				valid++
			}
		}
	}
	return valid, nil
}

// numbers reads the arguments after the file; wanted is how many there must be.
func numbers(fields []string, wanted int) ([]int, error) {
	if len(fields) < 3+wanted {
		return nil, errors.New("too few arguments")
	}
	values := make([]int, wanted)
	for i := range values {
		value, err := strconv.Atoi(fields[3+i])
		if err != nil {
			return nil, err
		}
		values[i] = value
	}
	return values, nil
}

var argumentCounts = map[string]int{
	"prefix": 1, "range": 2, "write": 2, "publish": 1, "remove_tree": 1,
}

func run(request string) (answer, error) {
	fields := strings.Split(request, "\t")
	if len(fields) < 3 {
		return answer{}, errors.New("too few fields")
	}
	workload, file := fields[0], fields[2]
	count, err := strconv.Atoi(fields[1])
	if err != nil {
		return answer{}, err
	}
	arguments, err := numbers(fields, argumentCounts[workload])
	if err != nil {
		return answer{}, err
	}

	switch workload {
	case "utf8":
		data, err := load(file)
		if err != nil {
			return answer{}, err
		}
		return timed(count, func() (int, error) {
			if utf8.Valid(data) {
				return 1, nil
			}
			return 0, nil
		})
	case "read_text":
		return timed(count, func() (int, error) { return readText(file) })
	case "prefix":
		return timed(count, func() (int, error) { return prefix(file, arguments[0]) })
	case "range":
		buffer := make([]byte, arguments[1])
		return timed(count, func() (int, error) { return readRange(file, arguments[0], buffer) })
	case "normalize":
		return timedPaths(count, file, path.Clean)
	case "parent":
		return timedPaths(count, file, path.Dir)
	case "resolve":
		return timedPaths(count, file, func(line string) string {
			return path.Join(line, "../sibling/name.txt")
		})
	case "name":
		return timedPaths(count, file, path.Base)
	case "extension": // with its dot
		return timedPaths(count, file, path.Ext)
	case "write":
		text := strings.Repeat("x", arguments[0])
		return timed(1, func() (int, error) { return writeThreads(file, text, count, arguments[1]) })
	case "publish":
		text := strings.Repeat("x", arguments[0])
		n := 0
		return timed(count, func() (int, error) {
			n++
			return publish(file, file+".tmp-"+strconv.Itoa(n), text)
		})
	case "list":
		return timed(count, func() (int, error) { return list(file) })
	case "remove_tree":
		return removeTrees(count, file, arguments[0])
	case "walk":
		return timed(count, func() (int, error) { return walk(file) })
	case "utf8_simd":
		return answer{}, errors.New("nothing of the kind in the standard library")
	}
	return answer{}, errors.New("unknown workload")
}

func main() {
	requests := bufio.NewScanner(os.Stdin)
	for requests.Scan() {
		if result, err := run(requests.Text()); err != nil {
			fmt.Printf("skip\t%s\n", strings.NewReplacer("\t", " ", "\n", " ").Replace(err.Error()))
		} else {
			fmt.Printf("%d\t%d\n", result.nanoseconds, result.checksum)
		}
	}
}
