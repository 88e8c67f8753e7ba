# Makes gstat_cv.csv: cross-validation of the Meuse data by gstat (Debian's r-cran-gstat 2.1), estimate and variance of
# each kind in turn, after the fold of each datum in the kinds with folds.
#
#     Rscript tests/engine/meuse/gstat_cv.R examples/data/meuse tests/engine/meuse/gstat_cv.csv

suppressMessages({library(sp); library(gstat)})
arguments <- commandArgs(trailingOnly = TRUE)
samples <- read.csv(file.path(arguments[1], "meuse.csv"))
samples$root <- sqrt(samples$dist)
folds <- (seq_len(nrow(samples)) * 7) %% 10
coordinates(samples) <- ~x+y

spherical <- vgm(0.59, "Sph", 900, 0.05)
zinc <- vgm(140000, "Sph", 850, 20000)
by <- function(formula, model, ...) {
  result <- krige.cv(formula, samples, model, verbose = FALSE, debug.level = 0, ...)
  cbind(result$var1.pred, result$var1.var)
}
table <- cbind(folds,
               by(log(zinc) ~ 1, spherical),
               by(zinc ~ 1, zinc),
               by(log(zinc) ~ 1, spherical, beta = 5.9),
               by(log(zinc) ~ x + y, spherical),
               by(log(zinc) ~ root, spherical),
               by(log(zinc) ~ 1, spherical, nmax = 20),
               by(log(zinc) ~ root, spherical, nmax = 40),
               by(log(zinc) ~ 1, spherical, maxdist = 800, nmax = 15),
               by(log(zinc) ~ root, spherical, nfold = folds),
               by(log(zinc) ~ 1, spherical, nmax = 20, nfold = folds))
write.table(signif(table, 15), arguments[2], sep = ",", row.names = FALSE, col.names = FALSE)
