// Benchmark implementation: answers file and path workloads with Rust's standard library.
// Built with `--cfg simdutf8` it also answers `utf8_simd` with the simdutf8 crate.

use std::collections::HashMap;
use std::error::Error;
use std::fs::{self, File};
use std::io::{self, BufRead, BufWriter, Read, Write};
use std::os::unix::fs::FileExt;
use std::path::Path;
use std::thread;
use std::time::Instant;

type Result<T> = std::result::Result<T, Box<dyn Error + Send + Sync>>;

struct Answer {
    nanoseconds: u128,
    checksum: usize,
}

/// Files loaded before the clock starts, kept by name.
type Cache = HashMap<String, Vec<u8>>;

/// As in the C++ implementations: a text begins at the same offset in a page in every process.
const MAPPED_SIZE: usize = 64 << 20;

fn load<'a>(cache: &'a mut Cache, file: &str) -> Result<&'a [u8]> {
    if !cache.contains_key(file) {
        let mut text = Vec::with_capacity(MAPPED_SIZE);
        File::open(file)?.read_to_end(&mut text)?;
        cache.insert(file.to_string(), text);
    }
    Ok(&cache[file])
}

fn load_lines<'a>(cache: &'a mut Cache, file: &str) -> Result<Vec<&'a str>> {
    let text = std::str::from_utf8(load(cache, file)?)?;
    Ok(text.strip_suffix('\n').unwrap_or(text).split('\n').collect())
}

/// Prevents the optimizer from hoisting the work out of the loop.
fn opaque<T: Copy>(value: T) -> T {
    unsafe { std::ptr::read_volatile(&value) }
}

/// Runs `step` `count` times; the checksum is the sum of what it returns.
fn timed(count: usize, mut step: impl FnMut() -> Result<usize>) -> Result<Answer> {
    let mut checksum = 0;
    let start = Instant::now();
    for _ in 0..count {
        checksum += step()?;
    }
    Ok(Answer { nanoseconds: start.elapsed().as_nanos(), checksum })
}

fn timed_paths<'a>(
    count: usize,
    lines: &[&'a str],
    operation: impl Fn(&'a Path) -> usize,
) -> Result<Answer> {
    timed(count, || Ok(lines.iter().map(|line| operation(Path::new(opaque(*line)))).sum()))
}

fn prefix(file: &str, size: usize) -> Result<usize> {
    let mut text = String::with_capacity(size);
    File::open(file)?.take(size as u64).read_to_string(&mut text)?;
    Ok(text.len())
}

fn write_buffered(file: &str, text: &str, times: usize) -> Result<usize> {
    let mut writer = BufWriter::new(File::create(file)?);
    for _ in 0..times {
        writer.write_all(text.as_bytes())?;
    }
    writer.flush()?;
    Ok(times * text.len())
}

fn write_threads(file: &str, text: &str, times: usize, threads: usize) -> Result<usize> {
    thread::scope(|scope| {
        let workers: Vec<_> = (0..threads)
            .map(|n| scope.spawn(move || write_buffered(&format!("{file}.{n}"), text, times)))
            .collect();
        workers.into_iter().map(|worker| worker.join().expect("a writer panicked")).sum()
    })
}

fn list(folder: &str) -> Result<usize> {
    let mut found = 0;
    for entry in fs::read_dir(folder)? {
        if let Ok(metadata) = fs::metadata(entry?.path()) {
            found += usize::from(metadata.is_file() || metadata.is_dir());
        }
    }
    Ok(found)
}

fn create_tree(folder: &str, files: usize) -> Result<()> {
    let folders = (files / 200).max(1);
    fs::create_dir(folder)?;
    for n in 0..folders {
        fs::create_dir(format!("{folder}/{n}"))?;
    }
    for n in 0..files {
        File::create(format!("{folder}/{}/{n}", n % folders))?;
    }
    Ok(())
}

fn remove_trees(count: usize, folder: &str, files: usize) -> Result<Answer> {
    let mut nanoseconds = 0;
    for _ in 0..count {
        create_tree(folder, files)?;
        let start = Instant::now();
        fs::remove_dir_all(folder)?;
        nanoseconds += start.elapsed().as_nanos();
    }
    Ok(Answer { nanoseconds, checksum: count * files })
}

fn walk(folder: &Path) -> Result<usize> {
    let mut valid = 0;
    for entry in fs::read_dir(folder)? {
        let path = entry?.path();
        let metadata = fs::symlink_metadata(&path)?;
        if metadata.is_dir() {
            valid += walk(&path)?;
        } else if metadata.is_file() {
            valid += usize::from(std::str::from_utf8(&fs::read(&path)?).is_ok());
        }
    }
    Ok(valid)
}

#[cfg(simdutf8)]
fn utf8_simd(count: usize, data: &[u8]) -> Result<Answer> {
    timed(count, || Ok(simdutf8::basic::from_utf8(opaque(data)).is_ok().into()))
}

#[cfg(not(simdutf8))]
fn utf8_simd(_count: usize, _data: &[u8]) -> Result<Answer> {
    Err("built without simdutf8".into())
}

fn answer(request: &str, cache: &mut Cache) -> Result<Answer> {
    let fields: Vec<&str> = request.split('\t').collect();
    let (&workload, &count, &file) = match &fields[..] {
        [workload, count, file, ..] => (workload, count, file),
        _ => return Err("too few fields".into()),
    };
    let count: usize = count.parse()?;
    let number = |index: usize| -> Result<usize> {
        Ok(fields.get(3 + index).ok_or("too few arguments")?.parse()?)
    };

    match workload {
        "utf8" => {
            let data = load(cache, file)?;
            timed(count, || Ok(std::str::from_utf8(opaque(data)).is_ok().into()))
        }
        "utf8_simd" => utf8_simd(count, load(cache, file)?),
        "read_text" => timed(count, || Ok(fs::read_to_string(file)?.len())),
        "prefix" => {
            let size = number(0)?;
            timed(count, || prefix(file, size))
        }
        "range" => {
            let position = number(0)? as u64;
            let mut buffer = vec![0; number(1)?];
            timed(count, || {
                File::open(file)?.read_exact_at(&mut buffer, position)?;
                Ok(buffer.len())
            })
        }
        "parent" => timed_paths(count, &load_lines(cache, file)?, |path| {
            path.parent().map_or(0, |parent| parent.as_os_str().len())
        }),
        "name" => timed_paths(count, &load_lines(cache, file)?, |path| {
            path.file_name().map_or(0, |name| name.len())
        }),
        "extension" => timed_paths(count, &load_lines(cache, file)?, |path| {
            path.extension().map_or(0, |extension| extension.len())
        }),
        "write" => {
            let text = "x".repeat(number(0)?);
            let threads = number(1)?;
            timed(1, || write_threads(file, &text, count, threads))
        }
        "publish" => {
            let text = "x".repeat(number(0)?);
            let mut names = (0..count).map(|n| format!("{file}.tmp-{n}"));
            timed(count, || {
                let temporary = names.next().ok_or("no name left")?;
                fs::write(&temporary, &text)?;
                fs::rename(&temporary, file)?;
                Ok(text.len())
            })
        }
        "list" => timed(count, || list(file)),
        "remove_tree" => remove_trees(count, file, number(0)?),
        "walk" => timed(count, || walk(Path::new(file))),
        "normalize" | "resolve" => Err("no lexical normalization in the standard library".into()),
        _ => Err("unknown workload".into()),
    }
}

fn main() -> io::Result<()> {
    let mut cache = Cache::new();
    for request in io::stdin().lock().lines() {
        match answer(&request?, &mut cache) {
            Ok(Answer { nanoseconds, checksum }) => println!("{nanoseconds}\t{checksum}"),
            Err(error) => println!("skip\t{}", error.to_string().replace(['\t', '\n'], " ")),
        }
    }
    Ok(())
}
