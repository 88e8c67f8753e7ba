# Makes models.csv in the folder it is run in: covariances of gstat's models (Debian's r-cran-gstat 2.1) with the parameters that
# docs/conventions.md gives for a range of 900.
suppressMessages(library(gstat))
a <- 900
models <- list(Spherical = vgm(1, "Sph", a), Exponential = vgm(1, "Exp", a / 3), Gaussian = vgm(1, "Gau", a / sqrt(3)),
               Linear = vgm(1, "Lin", a), CardinalSine = vgm(1, "Wav", a), Stable = vgm(1, "Exc", a / 3^(1 / 1.3), kappa = 1.3),
               Matern = vgm(1, "Ste", sqrt(2) * a, kappa = 0.7), anisotropic = vgm(0.59, "Exp", 300, nugget = 0.05, anis = c(45, 500 / 900)))
lags <- cbind(c(3, 100, -200, 300, 0, 640), c(4, 100, 150, -50, 250, 640))
rows <- do.call(rbind, lapply(names(models), function(name) {
  covariance <- apply(lags, 1, function(lag) {
    distance <- sqrt(sum(lag^2))
    variogramLine(models[[name]], maxdist = distance, n = 1, min = distance, dir = c(lag / distance, 0), covariance = TRUE)$gamma[1]
  })
  data.frame(model = name, x = lags[, 1], y = lags[, 2], covariance = sprintf("%.17g", covariance))
}))
write.csv(rows, "models.csv", row.names = FALSE, quote = FALSE)
