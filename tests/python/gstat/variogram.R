# Makes variogram.csv and fit.csv: experimental variograms of the Meuse data and models fitted to them by gstat
# (Debian's r-cran-gstat 2.1).
#
#     Rscript tests/python/gstat/variogram.R examples/data/meuse tests/python/gstat

suppressMessages({library(sp); library(gstat)})
arguments <- commandArgs(trailingOnly = TRUE)
samples <- read.csv(file.path(arguments[1], "meuse.csv"))
coordinates(samples) <- ~x+y

all <- variogram(log(zinc) ~ 1, samples, cutoff = 1500, width = 100)
four <- variogram(log(zinc) ~ 1, samples, cutoff = 1200, width = 150, alpha = c(0, 45, 90, 135))
robust <- variogram(log(zinc) ~ 1, samples, cutoff = 1500, width = 100, cressie = TRUE)
both <- gstat(gstat(NULL, "zinc", log(zinc) ~ 1, samples), "lead", log(lead) ~ 1, samples)
cross <- subset(variogram(both, cutoff = 1500, width = 100), id == "zinc.lead")
cross$np <- cross$np / 2 # which counts each pair twice
rows <- function(name, v) data.frame(name, azimuth = v$dir.hor, pairs = v$np, lag = v$dist, gamma = v$gamma)
table <- rbind(rows("all", all), rows("four", four), rows("robust", robust), rows("cross", cross))
table[, 4:5] <- signif(table[, 4:5], 14)
write.csv(table, file.path(arguments[2], "variogram.csv"), row.names = FALSE, quote = FALSE)

fits <- NULL
for (type in c("Sph", "Exp", "Gau")) for (method in c(1, 6, 7)) {
  first <- vgm(0.6, type, if (type == "Exp") 300 else if (type == "Gau") 430 else 900, 0.1)
  fit <- fit.variogram(all, first, fit.method = method)
  # From where it stops, again, until nothing changes.
  for (again in 1:20) fit <- fit.variogram(all, fit, fit.method = method)
  fits <- rbind(fits, data.frame(type, method, nugget = fit$psill[1], sill = fit$psill[2], range = fit$range[2],
                                 residual = attr(fit, "SSErr")))
}
fits[, 3:6] <- signif(fits[, 3:6], 12)
write.csv(fits, file.path(arguments[2], "fit.csv"), row.names = FALSE, quote = FALSE)
