# Bundles the page into the folder PAGE: index.html behind what it names.
#
# cmake -D ESBUILD=program -D PAGE=folder -P bundle.cmake, in the folder of the page's sources.

# The text of a file by which its name is chosen has changed: what was there before is nobody's.
file(REMOVE_RECURSE ${PAGE})
execute_process(COMMAND ${ESBUILD} main.ts page.css icon.svg
    --bundle --splitting --format=esm --minify --charset=utf8 --target=es2021
    --loader:.svg=copy --entry-names=[name]-[hash] --chunk-names=[name]-[hash]
    --outdir=${PAGE}/assets --log-level=warning
    COMMAND_ERROR_IS_FATAL ANY)

# asset(VARIABLE PATTERN): the one asset's name.
function(asset variable pattern)
    file(GLOB found RELATIVE ${PAGE}/assets ${PAGE}/assets/${pattern})
    set(${variable} ${found} PARENT_SCOPE)
endfunction()

asset(SCRIPT main-*.js)
asset(STYLE page-*.css)
asset(ICON icon-*.svg)
configure_file(index.html ${PAGE}/index.html @ONLY)

# For whoever takes them compressed; -n leaves out the time, so that equal pages are equal files.
file(GLOB files ${PAGE}/index.html ${PAGE}/assets/*)
execute_process(COMMAND gzip -9nk ${files} COMMAND_ERROR_IS_FATAL ANY)
