# Makes gstat.csv: kriging of the Meuse data by gstat (Debian's r-cran-gstat 2.1), estimate and variance of each kind in
# turn, after the coordinates and the root of the distance to the river, at about every 20th cell.
#
#     Rscript tests/engine/meuse/gstat.R examples/data/meuse tests/engine/meuse/gstat.csv

suppressMessages({library(sp); library(gstat)})
arguments <- commandArgs(trailingOnly = TRUE)
samples <- read.csv(file.path(arguments[1], "meuse.csv"))
cells <- read.csv(file.path(arguments[1], "meuse_grid.csv"))
cells <- cells[seq(1, nrow(cells), by = 20), ]
# Where two data are at one distance, which of them is among the nearest is up to the program.
tied <- apply(cells, 1, function(cell) {
  squares <- sort((samples$x - cell["x"])^2 + (samples$y - cell["y"])^2)
  any(squares[c(15, 20, 24, 40)] == squares[c(16, 21, 25, 41)])
})
cells <- cells[!tied, ]
samples$root <- sqrt(samples$dist)
cells$root <- sqrt(cells$dist)
coordinates(samples) <- ~x+y
coordinates(cells) <- ~x+y

spherical <- vgm(0.59, "Sph", 900, 0.05)
zinc <- vgm(140000, "Sph", 850, 20000)
turned <- vgm(0.59, "Sph", 1200, 0.05, anis = c(30, 0.5))
nested <- vgm(0.2, "Exp", 300, add.to = vgm(0.4, "Sph", 900, 0.05))
points <- expand.grid(x = c(-15, -5, 5, 15), y = c(-15, -5, 5, 15))
by <- function(formula, model, ...) {
  result <- krige(formula, samples, cells, model, debug.level = 0, ...)
  cbind(result$var1.pred, result$var1.var)
}
table <- cbind(coordinates(cells), cells$root,
               by(log(zinc) ~ 1, spherical, nmax = 20),
               by(log(zinc) ~ 1, spherical),
               by(zinc ~ 1, zinc, nmax = 20),
               by(zinc ~ 1, zinc),
               by(log(zinc) ~ 1, spherical, nmax = 20, beta = 5.9),
               by(log(zinc) ~ x + y, spherical),
               by(log(zinc) ~ root, spherical, nmax = 40),
               by(log(zinc) ~ 1, turned, nmax = 24),
               by(log(zinc) ~ 1, nested, maxdist = 500, nmax = 15),
               by(log(zinc) ~ 1, spherical, block = points, nmax = 20))
write.table(signif(table, 13), arguments[2], sep = ",", row.names = FALSE, col.names = FALSE)
